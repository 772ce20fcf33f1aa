#include "LineEditor.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QStandardPaths>

#include <cstdio>
#include <unistd.h>

namespace
{

constexpr char Prompt[] = "> ";
constexpr int HistorySize = 500; ///< lines
constexpr char EraseLine[] = "\r\033[J";

constexpr int InputReady = 1; ///< exit code of the loop that waits for input; 0 means that the program ends

// Results of the function that reads a character for the library
constexpr int ReadEnd = 0;
constexpr int ReadOne = 1;

LineEditor* Self(EditLine* editor)
{
    void* self = nullptr;
    el_get(editor, EL_CLIENTDATA, &self);
    return static_cast<LineEditor*>(self);
}

/// The user's folder for state (XDG Base Directory Specification), which QStandardPaths does not know in all versions
/// of Qt.
QString StateFolder()
{
    const QString folder = qEnvironmentVariable("XDG_STATE_HOME");
    return QDir::isAbsolutePath(folder) ? folder : QDir::homePath() + QStringLiteral("/.local/state");
}

}

LineEditor::LineEditor(Commands& commands)
    : commands(commands),
      editor(el_init("kova-simulator", stdin, stdout, stderr)),
      history(history_init()),
      readable(STDIN_FILENO, QSocketNotifier::Read)
{
    readable.setEnabled(false);
    connect(&readable, &QSocketNotifier::activated, &input, [this] { input.exit(InputReady); });

    el_set(editor, EL_CLIENTDATA, this);
    el_set(editor, EL_SIGNAL, 1); // handle suspending and resizing the terminal
    el_set(editor, EL_EDITOR, "emacs");
    el_set(editor, EL_GETCFN, &LineEditor::ReadCharacter);
    el_set(
        editor, EL_PROMPT, +[](EditLine*) { return const_cast<char*>(Prompt); });
    // Not el_set(), which leaks its copies of these two strings.
    el_wset(editor, EL_ADDFN, L"kova-complete", L"complete the word", &LineEditor::Complete);
    el_set(editor, EL_BIND, "^I", "kova-complete", nullptr);
    el_set(editor, EL_BIND, "^R", "em-inc-search-prev", nullptr);
    el_source(editor, nullptr); // the user's own .editrc
    LoadHistory();
    QMetaObject::invokeMethod(this, &LineEditor::ReadLines, Qt::QueuedConnection);
}

LineEditor::~LineEditor()
{
    el_end(editor);
    history_end(history);
}

void LineEditor::LoadHistory()
{
    const QDir folder(StateFolder() + QStringLiteral("/kova"));
    folder.mkpath(QStringLiteral("."));
    historyFile = QFile::encodeName(folder.filePath(QStringLiteral("simulator-history")));
    ::history(history, &event, H_SETSIZE, HistorySize);
    ::history(history, &event, H_SETUNIQUE, 1);
    ::history(history, &event, H_LOAD, historyFile.constData());
    el_set(editor, EL_HIST, ::history, history);
}

void LineEditor::ReadLines()
{
    int size = 0;
    while (true) {
        editing = true;
        const char* line = el_gets(editor, &size);
        editing = false;
        if (!line || size <= 0)
            break;
        const QString text = QString::fromUtf8(line, size).trimmed();
        if (text.isEmpty())
            continue;
        ::history(history, &event, H_ENTER, qUtf8Printable(text));
        ::history(history, &event, H_SAVE, historyFile.constData());
        // Execute the command in the loop that waits for the next character, because deleteLater() needs an event loop.
        QMetaObject::invokeMethod(
            this, [this, text] { Run(text); }, Qt::QueuedConnection);
    }
    std::puts("");
    Q_EMIT commands.Quit();
}

void LineEditor::Run(const QString& line)
{
    const Commands::Result result = commands.Run(line);
    if (!result.text.isEmpty())
        Print((result.done ? QString() : QStringLiteral("refused: ")) + result.text);
}

void LineEditor::Print(const QString& text)
{
    std::printf("%s%s\n", EraseLine, qPrintable(text));
    std::fflush(stdout);
    if (editing)
        el_set(editor, EL_REFRESH);
}

/// @return false at the end of the input, or when the program ends.
bool LineEditor::ReadByte(char& byte)
{
    readable.setEnabled(true);
    const bool ready = input.exec() == InputReady;
    readable.setEnabled(false);
    return ready && read(STDIN_FILENO, &byte, 1) == 1;
}

int LineEditor::ReadCharacter(EditLine* editor, wchar_t* character)
{
    LineEditor* self = Self(editor);
    char byte = 0;
    while (self->ReadByte(byte)) {
        const std::size_t used = std::mbrtowc(character, &byte, 1, &self->decoding);
        if (used <= 1)
            return ReadOne;
        if (used == std::size_t(-1))
            self->decoding = {}; // skip an invalid sequence
    }
    return ReadEnd;
}

/// Completes the word before the cursor as far as it is unambiguous, else shows the completions.
unsigned char LineEditor::Complete(EditLine* editor, int)
{
    LineEditor* self = Self(editor);
    const LineInfo* line = el_line(editor);
    const QString typed = QString::fromUtf8(line->buffer, static_cast<int>(line->cursor - line->buffer));
    const QString word = typed.section(QLatin1Char(' '), -1);
    const Commands::Result result = self->commands.Run(
        QStringLiteral("complete %1%2").arg(typed, word.isEmpty() ? QStringLiteral("\"\"") : QString()));
    const QStringList completions = result.text.split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    if (!result.done || completions.isEmpty())
        return CC_ERROR;

    QString common = completions.first();
    for (const QString& completion : std::as_const(completions)) {
        while (!completion.startsWith(common))
            common.chop(1);
    }
    if (completions.size() == 1)
        common += QLatin1Char(' ');
    if (common.size() > word.size()) {
        el_insertstr(editor, qUtf8Printable(common.mid(word.size())));
        return CC_REFRESH;
    }
    self->Print(completions.join(QStringLiteral("  ")));
    return CC_NORM;
}
