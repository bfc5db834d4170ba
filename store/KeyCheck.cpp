#include "store/KeyCheck.h"

namespace KeyCheck {

bool acceptable(const QString& what, const QString& value, QString* error)
{
    if (!value.contains(QLatin1Char('\'')))
        return true;
    if (error)
        *error = QStringLiteral("The %1 \"%2\" contains an apostrophe ('), which cannot be used in a key. "
                                "Correct it and try again.")
                     .arg(what, value);
    return false;
}

} // namespace KeyCheck
