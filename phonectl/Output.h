#pragma once

#include <QElapsedTimer>
#include <QJsonArray>
#include <QJsonObject>
#include <QString>
#include <QTimer>

#include <cstdio>

/// What a peer or a file says, safe to show on a terminal: control characters become \xNN, and characters that change
/// the direction of writing \uNNNN, so that nothing is shown in another order than it was sent.
QString Printable(const QString& text);

/// Writes one line, in UTF-8 whatever the locale, at once. Throws a Failure when standard output does not take it.
void PrintLine(std::FILE* stream, const QString& line);
void PrintLine(const QJsonObject& object);

enum Colour : int { Plain = 0, Red = 31, Green = 32, Yellow = 33 };

/// Coloured when standard output is a terminal that wants colour.
QString Painted(const QString& text, Colour colour);

/// Tells how far an operation has come: a line a step, and on a terminal below them one that lives.
class Progress : public QObject
{
    Q_OBJECT

public:
    /// @param silent only remember the steps.
    explicit Progress(bool silent);
    ~Progress() override { ClearLive(); }

    /// A step is reached.
    /// @param event its name in Steps().
    void Step(const char* event, const QString& text);

    /// What is being waited for, shown live until the next step; an empty text is shown no longer.
    void Await(const QString& what);

    /// The steps so far, each with the seconds it took since the start.
    QJsonArray Steps() const { return steps; }

private:
    void ShowLive();
    void ClearLive();
    QString Elapsed() const;

    const bool silent;
    const bool onTerminal;
    bool liveShown = false;
    QString awaited;
    QElapsedTimer elapsed;
    QTimer tick;
    QJsonArray steps;
};
