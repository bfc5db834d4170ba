#pragma once

#include <QString>
#include <optional>

class SharedDatabase;

// Writes the settings row as the configuration and folder screens do: open
// the row, add it with SNo 1 when missing, otherwise edit it, set only the
// fields given, save.
struct SettingsChange
{
    std::optional<QString> bankName;
    std::optional<QString> branchName;
    std::optional<QString> commPort;
    std::optional<QString> fontSize; // "0" Small, "1" Big
    std::optional<QString> bankInfoPath;
    std::optional<QString> reportPath;
};

namespace SettingsStore {

// Throws StoreError when a statement fails. Returns true when the row was
// created.
bool save(SharedDatabase& db, const SettingsChange& change);

} // namespace SettingsStore
