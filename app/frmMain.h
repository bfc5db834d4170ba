#pragma once

#include "widgets/ScreenRegistry.h"

#include <QPointer>
#include <QWidget>
#include <map>

class AppContext;
class ColourButton;
class QLabel;
#include "app/frmPassEntry.h"

// The main menu: seven buttons that open the work screens.
class frmMain : public QWidget
{
    Q_OBJECT
public:
    frmMain(AppContext& ctx, const ScreenRegistry& screens, QWidget* parent = nullptr);
    ~frmMain() override;

    // Reads the settings row into AppSettings; warns when it is missing.
    void Form_Load();

    // Shows the screen, the existing instance if one is open.
    QWidget* showScreen(Screen screen);
    QWidget* openScreen(Screen screen) const;
    frmPassEntry* passEntry() const { return m_passEntry; }

signals:
    // The main menu was unloaded: the program ends.
    void programEnded();

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    void showLogin(bool target);
    ColourButton* addButton(const char* name, const QString& caption);
    // A screen or the login prompt has gone.
    void screenClosed();

    AppContext& m_ctx;
    const ScreenRegistry& m_screens;
    std::map<Screen, QPointer<QWidget>> m_open;
    QPointer<frmPassEntry> m_passEntry;
    bool m_ending = false;
};
