#pragma once

#include "AtMessages.h"
#include "BusService.h"
#include "Modem.h"

/// The modem behind a serial port that takes AT commands: 3GPP TS 27.007 and 27.005, ITU-T V.250. It does what oFono
/// and ModemManager need for power, registration, single calls, messages and the access point; all else answers
/// "ERROR".
class AtModem : public QObject
{
    Q_OBJECT

public:
    /// @param contract whose faults and history apply to the commands that do the same as its methods.
    /// @param staysOn whether the modem keeps its power, and its calls, when the port is closed.
    AtModem(Modem& modem, BusService& contract, bool staysOn);

    void Open();
    void Close();
    /// Takes what was written to the port, whole lines or not.
    void Feed(const QByteArray& data);

    /// One line each: a method of the GSM daemon, and the commands that do the same.
    static QString Counterparts();

Q_SIGNALS:
    /// Bytes to be written to the port.
    void Output(const QByteArray& data);

private:
    using Handler = std::function<AtAnswer(const AtCommand& command)>;

    void HandleCommands();
    void HandlePort();
    void HandleNetwork();
    void HandleCalls();
    void HandleData();
    void Accept(const char* name);
    void Inform(const char* name, const QByteArray& text);
    /// A setting with a number of 0 to the most.
    void Keep(const char* name, int most, int& value);

    void Process();
    void Execute(const AtCommand& command);
    void TakeData(const AtInput::Item& item);
    void Meet(const QStringList& methods, const QVariantList& arguments, const std::function<AtAnswer()>& act);
    void Finish(const AtAnswer& answer);
    void FinishLater(const AtAnswer& answer, int ms);
    void EndLine(const QByteArray& result);
    void Write(const QByteArray& line);
    void Report(const QByteArray& line);
    void ReportUnasked(const QByteArray& line);

    AtAnswer SetFunction(const AtCommand& command);
    AtAnswer SelectOperator(const AtCommand& command);
    AtAnswer Dial(const AtCommand& command);
    AtAnswer ListCalls() const;
    AtAnswer HandleWaiting(const AtCommand& command);
    AtAnswer DefineContext(const AtCommand& command);
    AtAnswer ShowRegistration(const AtCommand& command, int& mode);

    void OnPowerChanged();
    void OnCallCame(const Call& call);
    void OnCallEnded(const Call& call, Modem::End why);
    void ReportRing();
    void DeliverMessages();
    int Registration() const;
    QByteArray RegistrationText(int mode) const;

    struct Settings {
        int echo = 0; ///< oFono expects a port without
        int errorNumbers = 1;
        int registration = 0;
        int packetRegistration = 0;
        int ringType = 0;
        int callerNumber = 0;
        int callWaiting = 0;
        int operatorFormat = 0;
    };

    Modem& modem;
    BusService& contract;
    const bool staysOn;
    AtMessages messages;
    QMap<QString, Handler> handlers;
    Settings settings;
    bool reportsUnasked = true; ///< outlives a visit: ModemManager closes the port in between
    AtInput input;
    bool open = false;
    int visit = 0;          ///< counts the times the port was open: a late answer is for the one that asked
    QList<AtCommand> queue; ///< of the line that is carried out
    bool executing = false; ///< a line; what is to be reported waits for its end
    bool waiting = false;   ///< for an answer that comes later
    bool prompting = false; ///< data are expected
    std::optional<Modem::Power> arrival; ///< the power that ends the wait
    int arrivalDelay = 0;
    QList<QByteArray> reports;
    int reported = 0; ///< the registration last reported
    bool contextActive = false;
    QTimer ringTimer;
    QList<QByteArray> arriving; ///< message units on their way
    QTimer arrivalTimer;
};
