#pragma once

#include <QSqlDatabase>
#include <QString>

namespace Schema {

// The schema version this program writes (SQLite's user_version).
constexpr int currentVersion = 5;

// Initial passwords of a new database (documented in the README).
inline constexpr const char* initialAdminPassword = "admin";
inline constexpr const char* initialUserPassword = "user";
inline constexpr const char* initialSetupPassword = "1234";
inline constexpr const char* initialDownloadPassword = "5678";

// Creates the tables, views and the password row in an empty database and
// brings an older one up to date. Returns false with a reason on failure.
bool ensure(QSqlDatabase db, QString* error);

} // namespace Schema
