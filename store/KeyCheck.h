#pragma once

#include <QString>

namespace KeyCheck {

// Keys (agent id, account number, scheme and category code, file name) were
// pasted into SQL text by version 2.1, so one holding an apostrophe
// broke every statement. Such a key is refused up front with a clear message.
// Returns true when the key is usable; otherwise sets *error.
bool acceptable(const QString& what, const QString& value, QString* error);

} // namespace KeyCheck
