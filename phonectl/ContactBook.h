#pragma once

#include "DeviceFiles.h"

#include <QList>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QString>
#include <QStringList>
#include <QVariantList>

/// The device's contacts, as the phone service reads them: an SQLite database, KOVA_CONTACTS_DB or else
/// kova/contacts.db in the user's data folder. An operation that fails throws a Failure and changes nothing.
class ContactBook
{
public:
    struct Contact {
        QString number;
        QString name;
        uint flags;
    };

    /// The right to call in: this contact's calls are answered.
    static constexpr uint MayCallIn = 16;

    /// @return the meaning of each flag that is set.
    static QStringList FlagWords(uint flags);

    /// Opens the database. The first Add() creates it if it does not exist.
    explicit ContactBook(const QString& path = DeviceFiles::Path(DeviceFiles::Contacts));
    ~ContactBook();
    Q_DISABLE_COPY(ContactBook)

    /// @return the contacts in the order in which they were added, none if there is no database.
    QList<Contact> All();
    void Add(const Contact& contact);
    void Remove(const QString& number);

private:
    void Open();
    QSqlQuery Run(const QString& statement, const QVariantList& values = {});

    const QString path;
    QSqlDatabase database;
};
