#pragma once

#include "Commands.h"

#include <QEventLoop>
#include <QSocketNotifier>

#include <cwchar>
#include <histedit.h>

/// Reads commands from a terminal, with editing, completion and a persistent history. The library waits for each
/// character in an event loop, so that the device keeps running.
class LineEditor : public QObject
{
    Q_OBJECT

public:
    explicit LineEditor(Commands& commands);
    ~LineEditor() override;

    /// Prints text above the line that is being edited.
    void Print(const QString& text);

private:
    void ReadLines();
    void Run(const QString& line);
    bool ReadByte(char& byte);
    void LoadHistory();

    static int ReadCharacter(EditLine* editor, wchar_t* character);
    static unsigned char Complete(EditLine* editor, int key);

    Commands& commands;
    EditLine* const editor;
    History* const history;
    HistEvent event = {};
    QByteArray historyFile;
    QSocketNotifier readable;
    QEventLoop input; ///< runs until there is input
    bool editing = false;
    std::mbstate_t decoding = {};
};
