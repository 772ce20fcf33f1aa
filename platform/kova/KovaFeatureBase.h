#pragma once

#include <QObject>

/// Base class of a device feature, an object that is identified by its D-Bus object path.
class KovaFeatureBase : public QObject
{
    Q_OBJECT

public:
    /// @param objectPath the feature's D-Bus object path.
    explicit KovaFeatureBase(const char* objectPath);
    ~KovaFeatureBase() override;

    /// True if the object path is valid (D-Bus, "Valid Object Paths").
    bool IsValid() const;

    /// Called when the device starts, stops, suspends or resumes the feature. The defaults do nothing.
    virtual void OnStart();
    virtual void OnStop();
    virtual void OnSuspend();
    virtual void OnResume();

private:
    bool valid;
};
