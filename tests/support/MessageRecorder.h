#pragma once

#include "base/Messenger.h"
#include "link/SessionMessage.h"

#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>

// Records what a session or a flow wants the user to be told, from its
// message signal, in the order it was said.
class MessageRecorder
{
public:
    struct Entry
    {
        QString text;
        Messenger::Icon icon;
        QString detail;
    };

    template <typename T> void listen(T* sender, void (T::*signal)(const SessionMessage&))
    {
        QObject::connect(sender, signal, sender,
                         [this](const SessionMessage& m) { add(m.text, messengerIcon(m.icon), m.detail); });
    }
    template <typename T> void listen(T* sender, void (T::*signal)(const QString&, Messenger::Icon, const QString&))
    {
        QObject::connect(
            sender, signal, sender,
            [this](const QString& text, Messenger::Icon icon, const QString& detail) { add(text, icon, detail); });
    }

    void add(const QString& text, Messenger::Icon icon, const QString& detail = {})
    {
        m_entries.append({text, icon, detail});
    }
    QString lastDetail() const { return m_entries.isEmpty() ? QString() : m_entries.last().detail; }
    const QList<Entry>& entries() const { return m_entries; }
    QStringList texts() const
    {
        QStringList t;
        for (const Entry& e : m_entries)
            t << e.text;
        return t;
    }
    QString last() const { return m_entries.isEmpty() ? QString() : m_entries.last().text; }
    Messenger::Icon lastIcon() const { return m_entries.isEmpty() ? Messenger::Icon::None : m_entries.last().icon; }
    int count(const QString& text) const { return static_cast<int>(texts().count(text)); }
    void clear() { m_entries.clear(); }

private:
    QList<Entry> m_entries;
};
