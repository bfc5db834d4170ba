#pragma once

#include "store/PasswordStore.h"

#include <QString>
#include <optional>

class SharedDatabase;

// The rules of changing one password, shared by the password screen and
// "tonvy-cli password set": which password the chosen options mean, the old
// password check, the confirmation check, the typing limits and the save.
class PasswordChange
{
public:
    // The option buttons as chosen: Software or Hand Held Terminal, and in
    // each frame its own pair of options.
    struct Selection
    {
        bool software = false;
        bool handHeld = false;
        bool admin = false;
        bool user = false;
        bool setup = false;
        bool download = false;

        static Selection of(PasswordKind kind);
    };

    enum class Outcome { Mismatch, Saved };

    static constexpr int softwareLimit = 10;
    static constexpr int terminalLimit = 4;

    // Reads the four stored passwords (StoredAdmin, StoredUser, StoredSetup,
    // StoredDownload). They are kept as read: a change saved later is not
    // seen until load() runs again. Throws StoreError.
    void load(SharedDatabase& db);

    // The first fully chosen pair in the order Software with Admin, Software
    // with User, Hand Held Terminal with Setup, Hand Held Terminal with Main
    // Screen; nothing when no pair is fully chosen.
    static std::optional<PasswordKind> kindOf(const Selection& selection);

    // The old password as typed, lower-cased, against the loaded one of the
    // chosen pair. True when no pair is chosen: then nothing is checked.
    bool oldPasswordAccepted(const Selection& selection, const QString& typed) const;

    // New and confirmation agree once each is lower-cased and trimmed.
    static bool confirms(const QString& newPassword, const QString& confirmation);

    // Checks the confirmation, then writes the new password to the chosen
    // pair's field. Saved also when no pair is chosen and nothing was
    // written. Throws StoreError.
    static Outcome save(SharedDatabase& db, const Selection& selection, const QString& newPassword,
                        const QString& confirmation);

    // Typing limit of the three boxes.
    static int lengthLimit(bool handHeld) { return handHeld ? terminalLimit : softwareLimit; }
    // Backspace in a terminal box: the text's whole-number value divided by
    // ten ("0012" gives "1", an empty box "0").
    static QString backspaced(const QString& text);
    // Whether a value may be typed for a kind: at most 10 characters for the
    // software passwords, at most 4 digits for the terminal ones.
    static bool typeable(PasswordKind kind, const QString& value);

private:
    StoredPassword m_admin;
    StoredPassword m_user;
    QString m_setup;
    QString m_download;
};
