#pragma once

#include "AtMessages.h"
#include "BusService.h"
#include "Modem.h"

/// The modem behind a serial port with AT commands (3GPP TS 27.007 and 27.005, ITU-T V.250). It implements what oFono
/// and ModemManager need for power, registration, single calls, messages and the access point. It answers "ERROR" to
/// everything else.
class AtModem : public QObject
{
    Q_OBJECT

public:
    /// @param gsmService its faults and history apply to the commands that correspond to its methods.
    /// @param staysOn whether the modem keeps its power and its calls when the port is closed.
    AtModem(Modem& modem, BusService& gsmService, bool staysOn);

    void Open();
    void Close();
    /// @param data input of the port, in pieces of any size.
    void Feed(const QByteArray& data);

    /// @return one line for each method of the GSM daemon, with the commands that correspond to it.
    static QString Counterparts();

Q_SIGNALS:
    /// @param data output of the port.
    void Output(const QByteArray& data);

private:
    using Handler = std::function<AtAnswer(const AtCommand& command)>;

    void AddCommands();
    void AddPortCommands();
    void AddNetworkCommands();
    void AddCallCommands();
    void AddDataCommands();
    /// Adds a command that only answers "OK".
    void AddIgnored(const char* name);
    void AddInformation(const char* name, const QByteArray& text);
    /// Adds a setting with the values 0 to max.
    void AddSetting(const char* name, int max, int& value);

    void Process();
    void Execute(const AtCommand& command);
    void SubmitData(const AtInput::Item& item);
    void ExecuteUnderFault(const QStringList& methods, const QVariantList& arguments,
                           const std::function<AtAnswer()>& action);
    void Finish(const AtAnswer& answer);
    void FinishLater(const AtAnswer& answer, int ms);
    void EndLine(const QByteArray& result);
    void Write(const QByteArray& line);
    void Report(const QByteArray& line);
    void ReportToOfono(const QByteArray& line);

    AtAnswer SetFunction(const AtCommand& command);
    AtAnswer SelectOperator(const AtCommand& command);
    AtAnswer Dial(const AtCommand& command);
    AtAnswer ListCalls() const;
    AtAnswer ControlCalls(const AtCommand& command);
    AtAnswer DefineContext(const AtCommand& command);
    AtAnswer ShowRegistration(const AtCommand& command, int& mode);

    void OnPowerChanged();
    void OnCallReceived(const Call& call);
    void OnCallEnded(const Call& call, Modem::End why);
    void ReportRing();
    void DeliverMessages();
    int Registration() const;
    QByteArray RegistrationText(int mode) const;

    struct Settings {
        int echo = 0; ///< off, as oFono expects
        int errorNumbers = 1;
        int registration = 0;
        int packetRegistration = 0;
        int ringType = 0;
        int callerNumber = 0;
        int callWaiting = 0;
        int operatorFormat = 0;
    };

    Modem& modem;
    BusService& gsmService;
    const bool staysOn;
    AtMessages messages;
    QMap<QString, Handler> handlers;
    Settings settings;
    bool sendsOfonoReports = true; ///< kept across Close(): ModemManager reopens the port while probing it
    AtInput input;
    bool open = false;
    int session = 0;        ///< counts how often the port was opened: a delayed answer must not reach a later session
    QList<AtCommand> queue; ///< the rest of the line that is being executed
    bool executing = false; ///< from the start of a line to its result code
    bool waiting = false;   ///< a command's answer follows later
    bool prompting = false; ///< data are expected
    QList<QByteArray> reports;                ///< to be written after the result code
    std::optional<Modem::Power> awaitedPower; ///< the power that completes the waiting command
    int powerAnswerDelay = 0;                 ///< an injected fault, in milliseconds
    int reportedRegistration = 0;
    bool contextActive = false;
    QTimer ringTimer;
    QList<QByteArray> incomingUnits; ///< message units that the network has yet to deliver
    QTimer deliveryTimer;
};
