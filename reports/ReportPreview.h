#pragma once

#include "reports/PageWriter.h"
#include "reports/ReportPages.h"

#include <QAbstractScrollArea>
#include <QCache>
#include <QDialog>
#include <QImage>
#include <QTimer>
#include <functional>
#include <memory>

class AppContext;
class ColourButton;
class QLabel;
class QPagedPaintDevice;
class QPrinter;
class QProgressBar;
class QSaveFile;

// The pages of a report one under the other, each painted when it scrolls
// into view (a few are kept), so a report of a thousand pages shows its
// first page at once.
class ReportPageView : public QAbstractScrollArea
{
    Q_OBJECT
public:
    explicit ReportPageView(const ReportPages& pages, QWidget* parent = nullptr);

    // 1.0 fits the page's width into the window.
    void setZoom(qreal zoom);
    qreal zoom() const { return m_zoom; }
    // The page at the top of the window (0-based).
    int currentPage() const;
    void showPage(int index);
    // How many times a page was painted (pages are painted as they are seen).
    int pagesPainted() const { return m_painted; }

signals:
    void currentPageChanged(int index);

protected:
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void scrollContentsBy(int dx, int dy) override;

private:
    QSize pageSize() const;
    int pageStep() const;
    void updateScrollBars();
    QImage pageImage(int index);

    const ReportPages& m_pages;
    qreal m_zoom = 1.0;
    QCache<int, QImage> m_images{96 * 1024}; // the pages last painted, up to 96 MB
    QSize m_imageSize;
    int m_painted = 0;
};

// The View window of the report screen: the chosen report's pages, with
// Print and Save PDF. Printing and saving run a few pages at a time with a
// progress bar and a Cancel button, so the window never freezes.
class ReportPreview : public QDialog
{
    Q_OBJECT
public:
    using SavePathChooser = std::function<QString(QWidget* parent, const QString& suggested)>;
    // Sets the printer up (the print dialog); false to cancel.
    using PrinterChooser = std::function<bool(QWidget* parent, QPrinter* printer)>;

    // Reads the report's page breaks. Throws StoreError.
    ReportPreview(AppContext& ctx, ReportKind kind, const ReportLimits& limits, const ReportHeader& header,
                  QWidget* parent = nullptr);
    ~ReportPreview() override;

    const ReportPages& pages() const { return *m_pages; }
    ReportPageView* pageView() const { return m_view; }
    void setSavePathChooser(SavePathChooser chooser) { m_choosePath = std::move(chooser); }
    void setPrinterChooser(PrinterChooser chooser) { m_choosePrinter = std::move(chooser); }
    // The suggested PDF file name.
    void setSuggestedPdfPath(const QString& path) { m_suggestedPdf = path; }

    bool isWriting() const { return m_writer != nullptr; }

    void cmdPrint_Click();
    void cmdSavePdf_Click();
    void cmdCancel_Click();

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    void startJob(QPagedPaintDevice* device, const QString& doing);
    void jobStep();
    void endJob(const QString& status, bool failed);
    void showPageNumber(int index);

    AppContext& m_ctx;
    ReportKind m_kind;
    ReportLimits m_limits;
    ReportHeader m_header;
    std::unique_ptr<ReportPages> m_pages;
    ReportPageView* m_view = nullptr;
    QLabel* m_lblPage = nullptr;
    QLabel* m_lblStatus = nullptr;
    QLabel* m_lblChanged = nullptr;
    QProgressBar* m_progress = nullptr;
    ColourButton* m_print = nullptr;
    ColourButton* m_savePdf = nullptr;
    ColourButton* m_cancel = nullptr;
    QWidget* m_jobRow = nullptr;

    // The job under way: its device and file, and the painter of its pages.
    std::unique_ptr<QSaveFile> m_file;
    std::unique_ptr<QPagedPaintDevice> m_device;
    std::unique_ptr<PageWriter> m_writer;
    QString m_jobTarget;
    QTimer m_jobTimer;

    SavePathChooser m_choosePath;
    PrinterChooser m_choosePrinter;
    QString m_suggestedPdf;
};
