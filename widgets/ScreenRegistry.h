#pragma once

#include <QWidget>
#include <functional>
#include <map>

class AppContext;

// The work screens the main menu can open, each made by a factory that the
// subsystem registers. A button whose screen is not registered stays
// disabled.
enum class Screen { Receive, Send, Password, Configure, Drive, Report };

class ScreenRegistry
{
public:
    using Factory = std::function<QWidget*(AppContext& ctx)>;

    void add(Screen screen, Factory factory) { m_factories[screen] = std::move(factory); }
    bool has(Screen screen) const { return m_factories.count(screen) != 0; }
    QWidget* create(Screen screen, AppContext& ctx) const;

private:
    std::map<Screen, Factory> m_factories;
};
