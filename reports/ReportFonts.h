#pragma once

#include <QFont>
#include <QString>

// The report font carried inside the program (DejaVu Sans and DejaVu Sans
// Bold, compiled in as a resource): registered with the font database at
// first use, so preview, print and PDF use the same glyphs and the same
// widths on every machine, whatever fonts it has installed. Needs a
// QGuiApplication.
class ReportFonts
{
public:
    // Registers the two faces once; false when the resource could not be
    // loaded (a broken build).
    static bool ensureLoaded();
    static QString family();

    // The report font at a size in points; point sizes are turned into the
    // painter's units by the caller (see ReportPages).
    static QFont font(qreal pointSize, bool bold);

    // The advance of a text in points at `pointSize`, from the embedded
    // font's own metrics (no hinting, no kerning): the same on every machine
    // and every device.
    static qreal width(const QString& text, qreal pointSize, bool bold);
    // The widest advance of any printable Latin-1 character, in points.
    static qreal widestChar(qreal pointSize, bool bold);
    // The widest decimal digit, in points.
    static qreal widestDigit(qreal pointSize, bool bold);
};
