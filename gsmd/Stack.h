#pragma once

#include <QMap>
#include <QObject>
#include <QString>
#include <QTimer>
#include <QVariantMap>

#include <functional>
#include <optional>

/// Access point of the data connection and its credentials.
struct Apn {
    QString name; ///< empty for no data connection
    QString username;
    QString password;
};

/// A call as a stack knows it.
struct StackCall {
    enum State { StateDialling, StateIncoming, StateWaiting, StateActive, StateEnded };

    QString id; ///< the stack's own; an object path
    State state = StateEnded;
    QString number; ///< of the other party; empty when withheld
};

/// A modem stack on the system bus, with the one modem that is in use. It exists for as long as one process owns the
/// stack's bus name. Nothing here blocks: what takes time ends with a call of the function given, at most once, and
/// never before the request has returned. With the stack's end that function is forgotten.
class Stack : public QObject
{
    Q_OBJECT

public:
    using Done = std::function<void(bool success)>;

    /// @param wantedModem the modem's object path, or empty for the first that can carry calls.
    explicit Stack(const QString& wantedModem = QString());

    static constexpr int SmsLimitMs = 18000; ///< somewhat less than what the service waits for

    /// The modem's object path; empty while there is none.
    virtual QString ModemPath() const = 0;
    virtual bool IsOn() const = 0;
    virtual bool IsRegistered() const = 0;
    /// Whether a SIM card is in; nothing while unknown.
    virtual std::optional<bool> SimPresent() const = 0;
    /// Percent; nothing while unknown.
    virtual std::optional<int> Strength() const = 0;

    /// Takes the next step towards power on or off. @return false when there is none to take: the modem is where it
    /// should be, or has to report a change first.
    virtual bool TakePowerStep(bool on, const Done& done) = 0;
    /// Has the modem itself answer something; what the stack remembers does not count.
    virtual void Ping(const Done& done) = 0;

    /// @param done gets the call's id, or an empty text when the call could not be made.
    virtual void Dial(const QString& number, const std::function<void(const QString& id)>& done) = 0;
    virtual void Answer(const QString& id, const Done& done) = 0;
    virtual void Hangup(const QString& id, const Done& done) = 0;

    /// Ends when the network has taken the message or refused it, or the modem is gone. A message that is not sent
    /// within SmsLimitMs is taken back as far as the stack can.
    virtual void SendSms(const QString& recipient, const QString& text, const Done& done) = 0;

    virtual void SetApn(const Apn& apn, const Done& done) = 0;
    /// Connects with the access point that was set, now or as soon as the network allows it, and tries again if
    /// refused.
    void BringUpLink(const Apn& apn);

protected:
    static constexpr int PingTimeoutMs = 20000;

    /// @param suitability rates a modem; one that is rated 0 is never chosen.
    /// @return the path of the modem to use; empty if there is none.
    template <typename Description>
    QString BestModem(const QMap<QString, Description>& modems, int (*suitability)(const Description&)) const
    {
        QString chosen;
        int best = 0;
        for (auto candidate = modems.cbegin(); candidate != modems.cend(); ++candidate) {
            const int suits = wantedModem.isEmpty() ? suitability(*candidate) : candidate.key() == wantedModem;
            if (suits > best) {
                best = suits;
                chosen = candidate.key();
            }
        }
        return chosen;
    }

    /// To be called when CanConnect() has become true.
    void TryLink();
    /// Whether the network allows a data connection now.
    virtual bool CanConnect() const = 0;
    virtual void Connect(const Apn& apn, const Done& done) = 0;

Q_SIGNALS:
    /// The modem is there or gone, or its power has changed.
    void ModemChanged();
    void RegistrationChanged();
    void StrengthChanged();
    /// A call is new or in another state.
    void CallChanged(const StackCall& call);
    /// @param info "Sender", and what else the stack tells of the message.
    void MessageReceived(const QString& text, const QVariantMap& info);

private:
    const QString wantedModem;
    std::optional<Apn> linkApn;
    QTimer linkTimer; ///< runs between a connection that failed and the next try
};
