#include "PasswordCommand.h"

#include "AppContext.h"
#include "ConsoleMessenger.h"
#include "PasswordChange.h"

#include <optional>

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

int set(CliRun& run)
{
    const QCommandLineParser& p = run.parser;
    for (const char* required : {"kind", "old", "new"}) {
        if (!p.isSet(QLatin1String(required)))
            return cliUsageError(QStringLiteral("'password set' needs --kind, --old and --new."));
    }
    const auto kind = kindNamed(p.value(QStringLiteral("kind")).trimmed().toLower());
    if (!kind)
        return cliUsageError(QStringLiteral("--kind takes admin, user, setup or main."));
    const QString oldPassword = p.value(QStringLiteral("old"));
    const QString newPassword = p.value(QStringLiteral("new"));
    const bool confirmed = p.isSet(QStringLiteral("confirm"));
    const QString confirmation = confirmed ? p.value(QStringLiteral("confirm")) : newPassword;

    // The same limits as typing on the password screen.
    for (const QString& value : {oldPassword, newPassword, confirmation}) {
        if (!PasswordChange::typeable(*kind, value))
            return cliUsageError(PasswordStore::isSoftware(*kind)
                                     ? QStringLiteral("Software passwords are at most 10 characters.")
                                     : QStringLiteral("Terminal passwords are at most 4 digits."));
    }

    PasswordChange change;
    change.load(run.ctx.db());
    const PasswordChange::Selection selection = PasswordChange::Selection::of(*kind);
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

} // namespace

CliCommand passwordCommand()
{
    CliCommand c;
    c.name = QStringLiteral("password");
    c.synopsis = QStringLiteral("password set --kind admin|user|setup|main --old OLD --new NEW [--confirm NEW]");
    c.addOptions = [](QCommandLineParser& p) {
        p.addOption({QStringLiteral("kind"),
                     QStringLiteral("Which password: admin, user (this program), setup, main (the terminal's)."),
                     QStringLiteral("KIND")});
        p.addOption({QStringLiteral("old"), QStringLiteral("The password now in use."), QStringLiteral("OLD")});
        p.addOption({QStringLiteral("new"), QStringLiteral("The new password."), QStringLiteral("NEW")});
        p.addOption({QStringLiteral("confirm"), QStringLiteral("The new password again."), QStringLiteral("NEW")});
    };
    c.run = [](CliRun& run) {
        if (run.arguments != QStringList{QStringLiteral("set")})
            return cliUsageError(QStringLiteral("Use 'password set --kind KIND --old OLD --new NEW [--confirm NEW]'."));
        return set(run);
    };
    return c;
}
