#pragma once

#include <QObject>

/// Base of a device feature: an object that is known by its D-Bus object path.
class KovaFeatureBase : public QObject
{
    Q_OBJECT

public:
    /// @param objectPath the feature's D-Bus object path.
    explicit KovaFeatureBase(const char* objectPath);
    ~KovaFeatureBase() override;

    /// True when the object path is well-formed by the D-Bus rules for object paths.
    bool IsValid() const;

    /// The device starts, stops, suspends or resumes the feature. A feature that needs nothing there overrides them
    /// with empty bodies.
    virtual void OnStart();
    virtual void OnStop();
    virtual void OnSuspend();
    virtual void OnResume();

private:
    bool valid;
};
