#include "reports/ReportFonts.h"

#include <QFile>
#include <QFontDatabase>
#include <QHash>
#include <QRawFont>
#include <array>

namespace {

// Advances are taken at this pixel size and scaled: large enough that the
// font engine's fixed-point rounding is far below a printed dot.
constexpr qreal referenceSize = 1000.0;

struct Face
{
    QRawFont raw;
    QHash<char16_t, qreal> advance; // per character, at referenceSize
    qreal widest = 0;
    qreal widestDigit = 0;
};

struct Fonts
{
    bool loaded = false;
    QString family;
    std::array<Face, 2> faces; // regular, bold
};

Fonts& fonts()
{
    static Fonts f;
    return f;
}

bool loadFace(const QString& resource, Face* face, QString* family)
{
    QFile file(resource);
    if (!file.open(QIODevice::ReadOnly))
        return false;
    const QByteArray data = file.readAll();
    const int id = QFontDatabase::addApplicationFontFromData(data);
    if (id < 0)
        return false;
    const QStringList families = QFontDatabase::applicationFontFamilies(id);
    if (!families.isEmpty())
        *family = families.constFirst();
    face->raw = QRawFont(data, referenceSize, QFont::PreferNoHinting);
    if (!face->raw.isValid())
        return false;
    for (char16_t c = 0x20; c <= 0xFF; ++c) {
        if (c > 0x7E && c < 0xA0)
            continue;
        const QString text(QChar{c});
        const QList<quint32> glyphs = face->raw.glyphIndexesForString(text);
        const QList<QPointF> advances = face->raw.advancesForGlyphIndexes(glyphs);
        const qreal a = advances.isEmpty() ? 0 : advances.constFirst().x();
        face->advance.insert(c, a);
        face->widest = qMax(face->widest, a);
        if (c >= u'0' && c <= u'9')
            face->widestDigit = qMax(face->widestDigit, a);
    }
    return true;
}

const Face& face(bool bold)
{
    ReportFonts::ensureLoaded();
    return fonts().faces[bold ? 1 : 0];
}

} // namespace

bool ReportFonts::ensureLoaded()
{
    Fonts& f = fonts();
    if (f.loaded)
        return true;
    QString regularFamily;
    QString boldFamily;
    if (!loadFace(QStringLiteral(":/reportfonts/DejaVuSans.ttf"), &f.faces[0], &regularFamily) ||
        !loadFace(QStringLiteral(":/reportfonts/DejaVuSans-Bold.ttf"), &f.faces[1], &boldFamily))
        return false;
    f.family = regularFamily.isEmpty() ? QStringLiteral("DejaVu Sans") : regularFamily;
    f.loaded = true;
    return true;
}

QString ReportFonts::family()
{
    ensureLoaded();
    return fonts().family;
}

QFont ReportFonts::font(qreal pointSize, bool bold)
{
    QFont font(family());
    font.setPointSizeF(pointSize);
    font.setBold(bold);
    font.setStyleHint(QFont::SansSerif, QFont::NoFontMerging);
    // Widths are measured from the font's own advances: no kerning and no
    // hinting, so what is painted is what was measured.
    font.setKerning(false);
    font.setHintingPreference(QFont::PreferNoHinting);
    return font;
}

qreal ReportFonts::width(const QString& text, qreal pointSize, bool bold)
{
    const Face& f = face(bold);
    qreal total = 0;
    QString other;
    for (const QChar c : text) {
        const auto it = f.advance.constFind(c.unicode());
        if (it != f.advance.constEnd())
            total += *it;
        else
            other += c;
    }
    if (!other.isEmpty() && f.raw.isValid()) {
        const QList<QPointF> advances = f.raw.advancesForGlyphIndexes(f.raw.glyphIndexesForString(other));
        for (const QPointF& a : advances)
            total += a.x();
    }
    return total * pointSize / referenceSize;
}

qreal ReportFonts::widestChar(qreal pointSize, bool bold)
{
    return face(bold).widest * pointSize / referenceSize;
}

qreal ReportFonts::widestDigit(qreal pointSize, bool bold)
{
    return face(bold).widestDigit * pointSize / referenceSize;
}
