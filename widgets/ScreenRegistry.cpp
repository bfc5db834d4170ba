#include "widgets/ScreenRegistry.h"

QWidget* ScreenRegistry::create(Screen screen, AppContext& ctx) const
{
    const auto it = m_factories.find(screen);
    return it == m_factories.end() ? nullptr : it->second(ctx);
}
