#pragma once

#include <QByteArray>
#include <QList>

/// The answer to a command on the AT port.
struct AtAnswer {
    enum Result {
        Ok,
        Error,
        EquipmentError, ///< "+CME ERROR", with a number of 3GPP TS 27.007, 9.2
        MessageError,   ///< "+CMS ERROR", with a number of 3GPP TS 27.005, 3.2.5
        NoCarrier,
        Prompt, ///< data are requested before the result
        Later   ///< the result follows when the modem has reached the requested power
    };

    /// "OK" after one line of information.
    static AtAnswer Line(const QByteArray& line) { return {Ok, 0, {line}}; }

    Result result = Ok;
    int number = 0;
    QList<QByteArray> lines = {};
};

// 3GPP TS 27.007, 9.2
constexpr int CmeNotAllowed = 3;
constexpr int CmeSimNotInserted = 10;
constexpr int CmeNoNetwork = 30;
// 3GPP TS 27.005, 3.2.5
constexpr int CmsInvalidPdu = 304;
constexpr int CmsInvalidIndex = 321;
constexpr int CmsNoNetwork = 331;
