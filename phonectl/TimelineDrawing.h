#pragma once

#include "History.h"

#include <QByteArray>

/// A history as a picture.
class TimelineDrawing
{
public:
    /// @param reader the reader of the log that the history was made from.
    TimelineDrawing(const History& history, const LogReader& reader);

    /// The picture as SVG.
    QByteArray Svg() const;

    /// A self-contained page with the picture and the text of each power cycle, warning and error.
    QByteArray Html() const;

    static const char* LaneName(History::Lane lane);
    static const char* StateName(History::State state);
    static const char* KindName(History::Kind kind);

    /// A time of the history in words; for a log without times, the number of the line.
    QString Moment(double time) const;

private:
    /// Marks that are drawn as one, at least one.
    struct Cluster {
        std::vector<const History::Mark*> marks;
    };

    double X(double time) const;
    QString Clock(double time, const char* format) const;
    QString Headline() const;
    QString Summary() const;
    QString ClusterText(const Cluster& cluster) const;
    std::vector<Cluster> Clusters(const std::vector<History::Kind>& kinds) const;

    QString Axis(double top, double bottom) const;
    QString LaneOf(History::Lane lane, double top) const;
    QString Legend(const std::vector<std::pair<QString, QString>>& entries, double top) const;
    QString SignalLane(double top) const;
    QString MessageLane(double top) const;

    const History& history;
    const LogReader& reader;
    double length; ///< of the history, never 0
};
