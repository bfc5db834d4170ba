#include "cli/PasswordCommand.h"

#include "admin/PasswordChange.h"
#include "cli/ConsoleMessenger.h"
#include "core/AppContext.h"

#include <QTextStream>
#include <cstdio>
#include <optional>

#ifdef Q_OS_UNIX
#include <termios.h>
#include <unistd.h>
#endif

namespace {

std::optional<PasswordKind> kindNamed(const QString& name)
{
    if (name == QLatin1String("admin"))
        return PasswordKind::Admin;
    if (name == QLatin1String("user"))
        return PasswordKind::User;
    if (name == QLatin1String("setup"))
        return PasswordKind::Setup;
    if (name == QLatin1String("main"))
        return PasswordKind::Download;
    return std::nullopt;
}

// Passwords given on the command line can be read by every user of the
// machine (the process list, the shell's history), so they are read from
// standard input instead when not given: one a line, old, new and
// (optionally) the confirmation; on a terminal with a prompt and no echo.
class SecretInput
{
public:
    SecretInput() : m_terminal(isatty(fileno(stdin)) != 0) {}

    std::optional<QString> read(const QString& prompt)
    {
        if (m_terminal) {
            std::fputs(prompt.toLocal8Bit().constData(), stderr);
            std::fflush(stderr);
        }
        setEcho(false);
        QString line;
        const bool got = m_in.readLineInto(&line);
        setEcho(true);
        if (m_terminal)
            std::fputc('\n', stderr);
        if (!got)
            return std::nullopt;
        if (line.endsWith(QLatin1Char('\r')))
            line.chop(1);
        return line;
    }

private:
    void setEcho(bool on)
    {
#ifdef Q_OS_UNIX
        if (!m_terminal)
            return;
        termios t{};
        if (tcgetattr(STDIN_FILENO, &t) != 0)
            return;
        if (on)
            t.c_lflag |= ECHO;
        else
            t.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        tcsetattr(STDIN_FILENO, TCSANOW, &t);
#else
        Q_UNUSED(on);
#endif
    }

    bool m_terminal;
    QTextStream m_in{stdin};
};

int change(CliRun& run, PasswordKind kind, const QString& oldPassword, const QString& newPassword,
           const QString& confirmation)
{
    // The same limits as typing on the password screen.
    for (const QString& value : {oldPassword, newPassword, confirmation}) {
        if (!PasswordChange::typeable(kind, value))
            return cliUsageError(PasswordStore::isSoftware(kind)
                                     ? QStringLiteral("Software passwords are at most 10 characters.")
                                     : QStringLiteral("Terminal passwords are at most 4 digits."));
    }

    PasswordChange change;
    change.load(run.ctx.db());
    const PasswordChange::Selection selection = PasswordChange::Selection::of(kind);
    if (!change.oldPasswordAccepted(selection, oldPassword)) {
        run.messenger.critical(QStringLiteral("Password entered is incorrect"));
        return CliExit::Failure;
    }
    if (PasswordChange::save(run.ctx.db(), selection, newPassword, confirmation) == PasswordChange::Outcome::Mismatch) {
        run.messenger.critical(QStringLiteral("Conifrming New Password is Incorrect"));
        return CliExit::Failure;
    }
    run.messenger.information(QStringLiteral("Data Saved Successfully"), QStringLiteral("DATA SAVE"));
    return CliExit::Success;
}

int set(CliRun& run)
{
    const QCommandLineParser& p = run.parser;
    if (!p.isSet(QStringLiteral("kind")))
        return cliUsageError(QStringLiteral("'password set' needs --kind."));
    const auto kind = kindNamed(p.value(QStringLiteral("kind")).trimmed().toLower());
    if (!kind)
        return cliUsageError(QStringLiteral("--kind takes admin, user, setup or main."));

    SecretInput input;
    auto value = [&](const char* option, const QString& prompt) -> std::optional<QString> {
        if (p.isSet(QLatin1String(option)))
            return p.value(QLatin1String(option));
        return input.read(prompt);
    };
    const std::optional<QString> oldPassword = value("old", QStringLiteral("Old password: "));
    const std::optional<QString> newPassword =
        oldPassword ? value("new", QStringLiteral("New password: ")) : std::nullopt;
    if (!oldPassword || !newPassword)
        return cliUsageError(QStringLiteral("'password set' needs the old and the new password: on standard input, "
                                            "one a line, or as --old and --new."));
    // The confirmation: --confirm, else a third line when the others came
    // from standard input, else the new password itself.
    std::optional<QString> confirmation;
    if (p.isSet(QStringLiteral("confirm")))
        confirmation = p.value(QStringLiteral("confirm"));
    else if (!p.isSet(QStringLiteral("new")))
        confirmation = input.read(QStringLiteral("Confirm new password: "));
    if (!confirmation)
        confirmation = *newPassword;
    return change(run, *kind, *oldPassword, *newPassword, *confirmation);
}

} // namespace

CliCommand passwordCommand()
{
    return CliCommand{
        .name = QStringLiteral("password"),
        .synopsis = QStringLiteral("password set --kind admin|user|setup|main [--old OLD --new NEW [--confirm NEW]]\n"
                                   "             without --old and --new the passwords are read from standard input,\n"
                                   "             one a line (old, new, confirmation), or asked for on a terminal"),
        .options =
            {
                {QStringLiteral("kind"),
                 QStringLiteral("Which password: admin, user (this program), setup, main (the terminal's)."),
                 QStringLiteral("KIND")},
                {QStringLiteral("old"), QStringLiteral("The password now in use."), QStringLiteral("OLD")},
                {QStringLiteral("new"), QStringLiteral("The new password."), QStringLiteral("NEW")},
                {QStringLiteral("confirm"), QStringLiteral("The new password again."), QStringLiteral("NEW")},
            },
        .run =
            [](CliRun& run) {
                if (run.arguments != QStringList{QStringLiteral("set")})
                    return cliUsageError(
                        QStringLiteral("Use 'password set --kind KIND' (the passwords on standard input) or "
                                       "'password set --kind KIND --old OLD --new NEW [--confirm NEW]'."));
                return set(run);
            },
    };
}
