#include "reports/PageCanvas.h"

#include "reports/ReportFonts.h"

#include <QColor>
#include <QPaintDevice>
#include <QPainter>
#include <QPointF>
#include <QRectF>
#include <algorithm>

namespace {

QString elided(const QString& text, qreal size, bool bold, qreal width)
{
    if (ReportFonts::width(text, size, bold) <= width + 0.01)
        return text;
    const QString dots = QStringLiteral("...");
    QString cut = text;
    while (!cut.isEmpty() && ReportFonts::width(cut + dots, size, bold) > width)
        cut.chop(1);
    return cut + dots;
}

} // namespace

void Pen::left(qreal x, qreal y, const QString& text, qreal width) const
{
    c.text(QPointF(x, y), width > 0 ? elided(text, size, bold, width) : text);
}

void Pen::right(qreal x, qreal y, const QString& text, qreal width) const
{
    const QString shown = width > 0 ? elided(text, size, bold, width) : text;
    c.text(QPointF(x - ReportFonts::width(shown, size, bold), y), shown);
}

void Pen::centre(qreal x, qreal y, const QString& text) const
{
    c.text(QPointF(x - ReportFonts::width(text, size, bold) / 2, y), text);
}

PainterCanvas::PainterCanvas(QPainter& p) : m_p(p), m_dpi(p.device() ? p.device()->logicalDpiY() : 72) {}

void PainterCanvas::setFont(qreal size, bool bold)
{
    // The painter works in points: a font size in points must not be
    // scaled a second time by the device's resolution.
    m_p.setFont(ReportFonts::font(size * 72.0 / m_dpi, bold));
    m_p.setPen(Qt::black);
}

void PainterCanvas::text(const QPointF& at, const QString& text)
{
    m_p.drawText(at, text);
}

void PainterCanvas::fill(const QRectF& rect, const QColor& colour)
{
    m_p.fillRect(rect, colour);
}

void PainterCanvas::line(const QPointF& from, const QPointF& to)
{
    m_p.setPen(QPen(Qt::black, 0.5));
    m_p.drawLine(from, to);
}

void TextCanvas::text(const QPointF& at, const QString& text)
{
    m_pieces.append({at.y(), at.x(), text});
}

QStringList TextCanvas::lines()
{
    std::stable_sort(m_pieces.begin(), m_pieces.end(), [](const Piece& a, const Piece& b) {
        if (qAbs(a.y - b.y) > 0.5)
            return a.y < b.y;
        return a.x < b.x;
    });
    QStringList out;
    qreal lastY = -1e9;
    for (const Piece& p : m_pieces) {
        if (qAbs(p.y - lastY) > 0.5)
            out << p.text;
        else
            out.last() += QLatin1Char(' ') + p.text;
        lastY = p.y;
    }
    return out;
}
