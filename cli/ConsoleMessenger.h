#pragma once

#include "base/Messenger.h"

#include <functional>

// Messages of the command-line tool: each text verbatim on its own line, its
// detail (what it is about, what to do) on the next,
// information on standard output, critical on standard error. Questions are
// answered by a policy the command sets (default: Cancel).
class ConsoleMessenger : public Messenger
{
public:
    void show(const QString& text, Icon icon, const QString& title = {}, const QString& detail = {}) override;
    bool askOkCancel(const QString& text, Icon icon, const QString& title = {}) override;

    void setAnswer(std::function<bool(const QString& question)> answer) { m_answer = std::move(answer); }
    // Prints a progress or result line on standard output.
    static void line(const QString& text);

private:
    std::function<bool(const QString&)> m_answer;
};
