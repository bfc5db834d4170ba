#pragma once

#include <QList>
#include <QString>
#include <QStringList>
#include <QtGlobal>

class QColor;
class QPainter;
class QPointF;
class QRectF;

// What a page is painted on: a QPainter, or a collector of the page's text.
class PageCanvas
{
public:
    virtual ~PageCanvas() = default;
    virtual void setFont(qreal pointSize, bool bold) = 0;
    virtual void text(const QPointF& baselineStart, const QString& text) = 0;
    virtual void fill(const QRectF& rect, const QColor& colour) = 0;
    virtual void line(const QPointF& from, const QPointF& to) = 0;
};

// Paints on a QPainter set up by ReportPages::beginPage().
class PainterCanvas : public PageCanvas
{
public:
    explicit PainterCanvas(QPainter& p);
    void setFont(qreal size, bool bold) override;
    void text(const QPointF& at, const QString& text) override;
    void fill(const QRectF& rect, const QColor& colour) override;
    void line(const QPointF& from, const QPointF& to) override;

private:
    QPainter& m_p;
    qreal m_dpi;
};

// Collects the text of a page as lines, top to bottom, pieces on one
// baseline joined by a blank.
class TextCanvas : public PageCanvas
{
public:
    void setFont(qreal, bool) override {}
    void text(const QPointF& at, const QString& text) override;
    void fill(const QRectF&, const QColor&) override {}
    void line(const QPointF&, const QPointF&) override {}
    QStringList lines();

private:
    struct Piece
    {
        qreal y;
        qreal x;
        QString text;
    };
    QList<Piece> m_pieces;
};

// Draws text in the report font with its baseline at y, left-aligned at x or
// right-aligned to x; cut short with "..." to `width` points when longer.
struct Pen
{
    PageCanvas& c;
    qreal size;
    bool bold;

    void use() const { c.setFont(size, bold); }
    void left(qreal x, qreal y, const QString& text, qreal width = -1) const;
    void right(qreal x, qreal y, const QString& text, qreal width = -1) const;
    void centre(qreal x, qreal y, const QString& text) const;
};
