#pragma once

#include "TimeLimits.h"

#include <QMap>
#include <QObject>
#include <QString>
#include <QTimer>
#include <QVariantMap>

#include <functional>
#include <optional>

/// Access point of the data connection and its credentials.
struct Apn {
    QString name;
    QString username;
    QString password;
};

/// A call as a stack knows it.
struct StackCall {
    enum State { StateDialling, StateIncoming, StateWaiting, StateActive, StateEnded };

    QString id; ///< the call's object path in the stack
    State state = StateEnded;
    QString number; ///< of the other party; empty when withheld
};

/// A modem stack on the system bus, with the one modem that is in use. An object exists for as long as one process owns
/// the stack's bus name. Nothing here blocks: a request that takes time calls the given function when it ends, at most
/// once, and never before it has returned. The function is not called any more when the stack is destroyed.
class ModemStack : public QObject
{
    Q_OBJECT

public:
    using Done = std::function<void(bool success)>;

    /// @param wantedModem the modem's object path, or empty for the first that can carry calls.
    explicit ModemStack(const QString& wantedModem = QString());

    static constexpr int SmsLimitMs = TimeLimits::GsmSmsMs - 2000; ///< the answer must arrive in time

    /// The modem's object path; empty while there is none.
    virtual QString ModemPath() const = 0;
    virtual bool IsOn() const = 0;
    virtual bool IsRegistered() const = 0;
    /// Whether a SIM card is inserted; empty while unknown.
    virtual std::optional<bool> SimPresent() const = 0;
    /// In percent; empty while unknown.
    virtual std::optional<int> Strength() const = 0;

    /// Takes the next step towards power on or off. @return false if there is none: the modem is in the wanted state,
    /// or has to report a change first.
    virtual bool TakePowerStep(bool on, const Done& done) = 0;
    /// Sends the modem a request that the stack cannot answer from its memory.
    virtual void Ping(const Done& done) = 0;

    /// @param done receives the call's id, or an empty string if the call could not be placed.
    virtual void Dial(const QString& number, const std::function<void(const QString& id)>& done) = 0;
    virtual void Answer(const QString& id, const Done& done) = 0;
    virtual void Hangup(const QString& id, const Done& done) = 0;

    /// Ends when the network has accepted or refused the message, or the modem is gone. A message that is not sent
    /// within SmsLimitMs is cancelled, if the stack can still do that.
    virtual void SendSms(const QString& recipient, const QString& text, const Done& done) = 0;

    /// Stores the access point for the next connection.
    virtual void SetApn(const Apn& apn, const Done& done) = 0;
    /// Connects to the access point that was set, now or as soon as the network allows it. Tries again if refused.
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

    /// Must be called when CanConnect() has become true.
    void TryLink();
    /// Whether the network allows a data connection now.
    virtual bool CanConnect() const = 0;
    virtual void Connect(const Apn& apn, const Done& done) = 0;

Q_SIGNALS:
    /// The modem has appeared or disappeared, or its power has changed.
    void ModemChanged();
    void RegistrationChanged();
    void StrengthChanged();
    /// There is a new call, or a call has changed its state.
    void CallChanged(const StackCall& call);
    /// @param info "Sender", and whatever else the stack reports of the message.
    void MessageReceived(const QString& text, const QVariantMap& info);

private:
    const QString wantedModem;
    std::optional<Apn> linkApn;
    QTimer linkTimer; ///< runs between a connection that failed and the next try
};
