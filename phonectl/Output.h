#pragma once

#include <QElapsedTimer>
#include <QJsonArray>
#include <QJsonObject>
#include <QString>
#include <QTimer>

#include <cstdio>

/// Makes a text from a peer or a file safe for a terminal: control characters become \xNN, and characters that change
/// the direction of writing \uNNNN.
QString Printable(const QString& text);

/// Writes and flushes one line, in UTF-8 in every locale. Throws a Failure if writing to standard output fails.
void PrintLine(std::FILE* stream, const QString& line);
void PrintLine(const QJsonObject& object);

enum Colour : int { Plain = 0, Red = 31, Green = 32, Yellow = 33 };

/// Colours the text if standard output is a terminal with colours and NO_COLOR is not set.
QString Painted(const QString& text, Colour colour);

/// Prints the progress of an operation: a line for each step, and on a terminal a live line with what it waits for.
class Progress : public QObject
{
    Q_OBJECT

public:
    /// @param silent print nothing, only record the steps.
    explicit Progress(bool silent);
    ~Progress() override { ClearLive(); }

    /// Prints and records a step.
    /// @param event the step's name in Steps().
    void Step(const char* event, const QString& text);

    /// Shows what the operation waits for in the live line; an empty text removes the line.
    void Await(const QString& what);

    /// The steps so far, each with the seconds since the start.
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
