#pragma once

#include "base/Messenger.h"

#include <QList>
#include <QString>
#include <QStringList>

// Records every message and answers questions from a queue (OK when empty).
class RecordingMessenger : public Messenger
{
public:
    struct Entry
    {
        QString text;
        Icon icon;
        QString title;
        bool question;
        QString detail;
    };

    void show(const QString& text, Icon icon, const QString& title = {}, const QString& detail = {}) override
    {
        m_entries.append({text, icon, title, false, detail});
    }
    bool askOkCancel(const QString& text, Icon icon, const QString& title = {}) override
    {
        m_entries.append({text, icon, title, true, {}});
        return m_answers.isEmpty() ? true : m_answers.takeFirst();
    }

    void queueAnswer(bool ok) { m_answers.append(ok); }
    const QList<Entry>& entries() const { return m_entries; }
    QStringList texts() const
    {
        QStringList t;
        for (const Entry& e : m_entries)
            t << e.text;
        return t;
    }
    QString last() const { return m_entries.isEmpty() ? QString() : m_entries.last().text; }
    QString lastDetail() const { return m_entries.isEmpty() ? QString() : m_entries.last().detail; }
    Icon lastIcon() const { return m_entries.isEmpty() ? Icon::None : m_entries.last().icon; }
    int count(const QString& text) const { return static_cast<int>(texts().count(text)); }
    void clear() { m_entries.clear(); }

private:
    QList<Entry> m_entries;
    QList<bool> m_answers;
};
