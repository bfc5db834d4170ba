#pragma once

#include <QString>

namespace PathUtil {

// Joins a folder and a name with one separator, adding none when the folder
// already ends in one ("C:\Bank" and "C:\Bank\" name the same file).
QString join(const QString& folder, const QString& name);

} // namespace PathUtil
