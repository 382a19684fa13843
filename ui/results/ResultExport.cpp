#include "ResultExport.h"

#include "project/TableFiles.h"

#include <QFileDialog>
#include <QFileInfo>
#include <QImage>
#include <QPainter>
#include <QPdfWriter>
#include <QWidget>

QString plotCsvText(const PlotTable &table)
{
    return labelledColumnsText(table.columnNames, table.columns, table.rowLabels);
}

void writePlotCsv(const QString &path, const PlotTable &table)
{
    writeLabelledColumns(path, table.columnNames, table.columns, table.rowLabels);
}

bool writeWidgetPdf(const QString &path, QWidget *content, const QString &title)
{
    QPdfWriter writer(path);
    writer.setTitle(title);
    writer.setCreator(QStringLiteral("Ambrel"));
    writer.setPageSize(QPageSize(QPageSize::A4));
    writer.setPageOrientation(QPageLayout::Landscape);
    writer.setResolution(300);
    QPainter painter;
    if (!painter.begin(&writer))
        return false;
    const QRect page = painter.viewport();
    QFont font = painter.font();
    font.setPointSize(11);
    painter.setFont(font);
    const int titleHeight = painter.fontMetrics().height() * 2;
    painter.drawText(QRect(0, 0, page.width(), titleHeight), Qt::AlignLeft | Qt::AlignVCenter, title);

    // The widget is drawn into an image at three times its size first: the
    // chart legends lose their entries when drawn onto the PDF directly.
    const QSize size = content->size().isEmpty() ? content->sizeHint() : content->size();
    QImage image(size * 3, QImage::Format_ARGB32_Premultiplied);
    image.setDevicePixelRatio(3);
    image.fill(Qt::white);
    {
        QPainter imagePainter(&image);
        content->render(&imagePainter, QPoint(), QRegion(), QWidget::DrawChildren);
    }
    const double scale = std::min(double(page.width()) / size.width(),
                                  double(page.height() - titleHeight) / size.height());
    painter.drawImage(QRectF(0, titleHeight, size.width() * scale, size.height() * scale), image);
    return painter.end();
}

QString askSavePath(QWidget *parent, const QString &proposedPath)
{
    const bool pdf = QFileInfo(proposedPath).suffix().compare(QLatin1String("pdf"), Qt::CaseInsensitive) == 0;
    return pdf ? QFileDialog::getSaveFileName(parent, QObject::tr("Save .pdf file"), proposedPath,
                                              QObject::tr("pdf file (*.pdf);;All Files (*)"))
               : QFileDialog::getSaveFileName(parent, QObject::tr("Save .csv file"), proposedPath,
                                              QObject::tr("csv file (*.csv);;All Files (*)"));
}
