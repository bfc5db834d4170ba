#include "reports/ReportPreview.h"

#include "base/DurableFile.h"
#include "core/AppContext.h"
#include "reports/ReportGeometry.h"
#include "reports/ReportRenderer.h"
#include "reports/SaveAdvice.h"
#include "store/StoreError.h"
#include "widgets/ColourButton.h"
#include "widgets/FocusReturn.h"
#include "widgets/ScreenParts.h"

#include <QCloseEvent>
#include <QDir>
#include <QElapsedTimer>
#include <QFileDialog>
#include <QHBoxLayout>
#include <QLabel>
#include <QPaintEvent>
#include <QPainter>
#include <QPdfWriter>
#include <QPrintDialog>
#include <QPrinter>
#include <QProgressBar>
#include <QSaveFile>
#include <QScrollBar>
#include <QVBoxLayout>

namespace {

constexpr int pageGap = 12;
// A step of printing or saving paints pages for about this long before it
// lets the window handle its events.
constexpr int stepMilliseconds = 40;

QString chooseSavePath(QWidget* parent, const QString& suggested)
{
    const FocusReturn back(parent);
    QFileDialog dialog(parent, QStringLiteral("Save PDF"), suggested, QStringLiteral("PDF files (*.pdf)"));
    dialog.setAcceptMode(QFileDialog::AcceptSave);
    dialog.setDefaultSuffix(QStringLiteral("pdf"));
    dialog.selectFile(suggested);
    const bool chosen = dialog.exec() == QDialog::Accepted && !dialog.selectedFiles().isEmpty();
    back.restore();
    return chosen ? dialog.selectedFiles().constFirst() : QString();
}

bool choosePrinter(QWidget* parent, QPrinter* printer)
{
    const FocusReturn back(parent);
    QPrintDialog dialog(printer, parent);
    const bool chosen = dialog.exec() == QDialog::Accepted;
    back.restore();
    return chosen;
}

} // namespace

ReportPageView::ReportPageView(const ReportPages& pages, QWidget* parent) : QAbstractScrollArea(parent), m_pages(pages)
{
    setObjectName(QStringLiteral("pageView"));
    viewport()->setAutoFillBackground(true);
    QPalette palette = viewport()->palette();
    palette.setColor(QPalette::Window, QColor(0x80, 0x80, 0x80));
    viewport()->setPalette(palette);
    setFocusPolicy(Qt::StrongFocus);
}

QSize ReportPageView::pageSize() const
{
    const ReportGeometry& g = ReportGeometry::get();
    const int width = qMax(100, static_cast<int>((viewport()->width() - 2 * pageGap) * m_zoom));
    return QSize(width, static_cast<int>(width * g.pageHeight / g.pageWidth));
}

int ReportPageView::pageStep() const
{
    return pageSize().height() + pageGap;
}

void ReportPageView::setZoom(qreal zoom)
{
    const int page = currentPage();
    m_zoom = qBound(0.25, zoom, 4.0);
    updateScrollBars();
    showPage(page);
    viewport()->update();
}

int ReportPageView::currentPage() const
{
    return qBound(0, (verticalScrollBar()->value() + pageStep() / 3) / pageStep(), qMax(0, m_pages.pageCount() - 1));
}

void ReportPageView::showPage(int index)
{
    verticalScrollBar()->setValue(index * pageStep());
}

void ReportPageView::updateScrollBars()
{
    const QSize page = pageSize();
    const int total = m_pages.pageCount() * pageStep() + pageGap;
    verticalScrollBar()->setRange(0, qMax(0, total - viewport()->height()));
    verticalScrollBar()->setPageStep(viewport()->height());
    verticalScrollBar()->setSingleStep(qMax(1, page.height() / 20));
    horizontalScrollBar()->setRange(0, qMax(0, page.width() + 2 * pageGap - viewport()->width()));
    horizontalScrollBar()->setPageStep(viewport()->width());
}

void ReportPageView::resizeEvent(QResizeEvent* event)
{
    QAbstractScrollArea::resizeEvent(event);
    updateScrollBars();
}

void ReportPageView::scrollContentsBy(int, int)
{
    viewport()->update();
    emit currentPageChanged(currentPage());
}

QImage ReportPageView::pageImage(int index)
{
    const QSize size = pageSize();
    if (size != m_imageSize) {
        m_images.clear();
        m_imageSize = size;
    }
    if (const QImage* cached = m_images.object(index))
        return *cached;
    QImage image(size, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::white);
    {
        QPainter painter(&image);
        ReportPages::beginPage(painter, image);
        try {
            m_pages.paintPage(painter, index);
        } catch (const StoreError& e) {
            painter.resetTransform();
            painter.drawText(QRect(QPoint(0, 0), size).adjusted(20, 20, -20, -20), Qt::TextWordWrap, e.message());
        }
    }
    ++m_painted;
    // Kept by size in kilobytes; a page too large to keep is simply drawn again.
    m_images.insert(index, new QImage(image), qMax<qsizetype>(1, image.sizeInBytes() / 1024));
    return image;
}

void ReportPageView::paintEvent(QPaintEvent*)
{
    if (m_imageSize != pageSize())
        updateScrollBars();
    QPainter painter(viewport());
    const QSize page = pageSize();
    const int step = pageStep();
    const int top = verticalScrollBar()->value();
    const int x = qMax(pageGap, (viewport()->width() - page.width()) / 2) - horizontalScrollBar()->value();
    const int first = qMax(0, (top - pageGap) / step);
    for (int i = first; i < m_pages.pageCount(); ++i) {
        const int y = pageGap + i * step - top;
        if (y >= viewport()->height())
            break;
        painter.drawImage(QPoint(x, y), pageImage(i));
    }
}

ReportPreview::ReportPreview(AppContext& ctx, ReportKind kind, const ReportLimits& limits, const ReportHeader& header,
                             QWidget* parent)
    : QDialog(parent), m_ctx(ctx), m_kind(kind), m_limits(limits), m_header(header), m_choosePath(chooseSavePath),
      m_choosePrinter(choosePrinter)
{
    setObjectName(QStringLiteral("reportPreview"));
    m_pages = ReportPages::make(ctx.db(), kind, limits, header);
    setWindowTitle(m_pages->title());

    auto* layout = new QVBoxLayout(this);
    auto* tools = new QHBoxLayout;
    m_print = namedButton("cmdPrint", QStringLiteral("&Print"), this);
    m_savePdf = namedButton("cmdSavePdf", QStringLiteral("Save P&DF"), this);
    auto* zoomOut = namedButton("cmdZoomOut", QStringLiteral("-"), this);
    auto* zoomIn = namedButton("cmdZoomIn", QStringLiteral("+"), this);
    m_lblPage = namedLabel("lblPage", QString(), this);
    auto* close = namedButton("cmdClose", QStringLiteral("C&lose"), this);
    tools->addWidget(m_print);
    tools->addWidget(m_savePdf);
    tools->addWidget(zoomOut);
    tools->addWidget(zoomIn);
    tools->addWidget(m_lblPage);
    tools->addStretch();
    tools->addWidget(close);
    layout->addLayout(tools);

    m_lblChanged = namedLabel("lblChanged",
                              QStringLiteral("The collections have changed since this report was made. "
                                             "Press View again to see the current figures."),
                              this);
    m_lblChanged->setVisible(false);
    layout->addWidget(m_lblChanged);

    m_view = new ReportPageView(*m_pages, this);
    layout->addWidget(m_view, 1);

    m_jobRow = new QWidget(this);
    auto* jobLayout = new QHBoxLayout(m_jobRow);
    jobLayout->setContentsMargins(0, 0, 0, 0);
    m_progress = new QProgressBar(m_jobRow);
    m_progress->setObjectName(QStringLiteral("progressBar"));
    m_cancel = namedButton("cmdCancel", QStringLiteral("&Cancel"), m_jobRow);
    jobLayout->addWidget(m_progress, 1);
    jobLayout->addWidget(m_cancel);
    m_jobRow->setVisible(false);
    layout->addWidget(m_jobRow);
    m_lblStatus = namedLabel("lblStatus", QString(), this);
    layout->addWidget(m_lblStatus);

    connect(m_print, &QPushButton::clicked, this, &ReportPreview::cmdPrint_Click);
    connect(m_savePdf, &QPushButton::clicked, this, &ReportPreview::cmdSavePdf_Click);
    connect(m_cancel, &QPushButton::clicked, this, &ReportPreview::cmdCancel_Click);
    connect(close, &QPushButton::clicked, this, &QWidget::close);
    connect(zoomIn, &QPushButton::clicked, this, [this] { m_view->setZoom(m_view->zoom() * 1.25); });
    connect(zoomOut, &QPushButton::clicked, this, [this] { m_view->setZoom(m_view->zoom() / 1.25); });
    connect(m_view, &ReportPageView::currentPageChanged, this, &ReportPreview::showPageNumber);
    m_jobTimer.setInterval(0);
    connect(&m_jobTimer, &QTimer::timeout, this, &ReportPreview::jobStep);
    showPageNumber(0);
    m_suggestedPdf = QDir(QDir::homePath()).filePath(QStringLiteral("report.pdf"));
    // The pages take the keys at first: the arrows and Page Up and Page Down
    // scroll them, Tab goes round the buttons above, Esc closes.
    m_view->setFocus();
}

ReportPreview::~ReportPreview()
{
    // Closed with a job under way: nothing half made is kept or printed.
    m_jobTimer.stop();
    if (m_writer) {
        if (auto* printer = dynamic_cast<QPrinter*>(m_device.get()))
            printer->abort();
        m_writer.reset();
    }
    if (m_file)
        m_file->cancelWriting();
}

void ReportPreview::showPageNumber(int index)
{
    m_lblPage->setText(QStringLiteral("Page %1 of %2").arg(index + 1).arg(m_pages->pageCount()));
    if (!m_lblChanged->isVisible() && m_pages->databaseChanged())
        m_lblChanged->setVisible(true);
}

void ReportPreview::cmdSavePdf_Click()
{
    if (isWriting())
        return;
    const QString path = m_choosePath(this, m_suggestedPdf);
    if (path.isEmpty())
        return;
    auto file = std::make_unique<QSaveFile>(path);
    if (!file->open(QIODevice::WriteOnly)) {
        endJob(withSaveAdvice(ReportRenderer::cannotWrite(QDir::toNativeSeparators(path), file->errorString())), true);
        return;
    }
    auto writer = std::make_unique<QPdfWriter>(file.get());
    writer->setTitle(m_pages->title());
    writer->setCreator(QStringLiteral("Tonvy Hand-Held Interface Software"));
    writer->setResolution(300);
    m_file = std::move(file);
    m_jobTarget = path;
    startJob(writer.release(), QStringLiteral("Saving"));
}

void ReportPreview::cmdPrint_Click()
{
    if (isWriting())
        return;
    auto printer = std::make_unique<QPrinter>(QPrinter::HighResolution);
    printer->setDocName(m_pages->title());
    printer->setFullPage(true);
    ReportPages::setUpDevice(printer.get());
    if (!m_choosePrinter(this, printer.get()))
        return;
    printer->setFullPage(true);
    m_jobTarget.clear();
    startJob(printer.release(), QStringLiteral("Printing"));
}

void ReportPreview::startJob(QPagedPaintDevice* device, const QString& doing)
{
    m_device.reset(device);
    try {
        m_writer = std::make_unique<PageWriter>(m_ctx.db(), m_kind, m_limits, m_header, device);
    } catch (const StoreError& e) {
        endJob(e.message(), true);
        return;
    }
    m_progress->setRange(0, m_writer->pageCount());
    m_progress->setValue(0);
    m_progress->setFormat(doing + QStringLiteral(" page %v of %m"));
    m_jobRow->setVisible(true);
    m_print->setEnabled(false);
    m_savePdf->setEnabled(false);
    m_lblStatus->clear();
    m_jobTimer.start();
}

void ReportPreview::jobStep()
{
    if (!m_writer) {
        m_jobTimer.stop();
        return;
    }
    try {
        QElapsedTimer clock;
        clock.start();
        bool done = false;
        while (!done && clock.elapsed() < stepMilliseconds)
            done = m_writer->writePages(1);
        m_progress->setValue(m_writer->pagesDone());
        if (!done)
            return;
        m_jobTimer.stop();
        const bool painted = m_writer->finish();
        m_writer.reset();
        if (m_file) {
            QString why;
            if (!painted || !DurableFile::commit(*m_file, &why)) {
                endJob(withSaveAdvice(ReportRenderer::cannotWrite(QDir::toNativeSeparators(m_jobTarget),
                                                                  painted ? why : m_file->errorString())),
                       true);
                return;
            }
            m_device.reset();
            m_file.reset();
            endJob(QStringLiteral("Report saved in %1").arg(QDir::toNativeSeparators(m_jobTarget)), false);
        } else {
            endJob(painted ? QStringLiteral("Report sent to the printer.")
                           : QStringLiteral("The printer did not take the report."),
                   !painted);
        }
    } catch (const StoreError& e) {
        endJob(e.message(), true);
    }
}

void ReportPreview::cmdCancel_Click()
{
    if (!isWriting())
        return;
    endJob(QStringLiteral("Cancelled: nothing was saved or printed."), false);
}

void ReportPreview::endJob(const QString& status, bool failed)
{
    m_jobTimer.stop();
    // Giving up: the painter ends, a PDF file is never committed and a
    // print job is aborted.
    if (m_writer) {
        if (auto* printer = dynamic_cast<QPrinter*>(m_device.get()))
            printer->abort();
        m_writer.reset();
    }
    if (m_file)
        m_file->cancelWriting();
    m_device.reset();
    m_file.reset();
    m_jobRow->setVisible(false);
    m_print->setEnabled(true);
    m_savePdf->setEnabled(true);
    m_lblStatus->setText(status);
    m_lblStatus->setStyleSheet(failed ? QStringLiteral("color: #C00000;") : QString());
}

void ReportPreview::closeEvent(QCloseEvent* event)
{
    if (isWriting())
        endJob(QString(), false);
    QDialog::closeEvent(event);
}
