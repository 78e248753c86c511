#include "browserwindow.h"

#include <database/csvimporter.h>
#include <database/databasemanager.h>
#include <database/databasetablemodel.h>
#include <database/jobs.h>

#include <core/settings.h>
#include <core/xlsxreader.h>

#include <QApplication>
#include <QComboBox>
#include <QDir>
#include <QEventLoop>
#include <QFileDialog>
#include <QFileInfo>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMessageBox>
#include <QProgressBar>
#include <QPushButton>
#include <QSignalBlocker>
#include <QSplitter>
#include <QStatusBar>
#include <QTableView>
#include <QToolBar>

using Database::DatabaseManager;

BrowserWindow::BrowserWindow(QWidget *parent)
    : QMainWindow(parent)
    , m_catalogue(new QListWidget)
    , m_table(new QTableView)
    , m_separator(new QLineEdit(QStringLiteral(",")))
    , m_format(new QComboBox)
    , m_encoding(new QComboBox)
    , m_model(new Database::DatabaseTableModel(this))
    , m_progress(new QProgressBar)
    , m_cancel(new QPushButton(tr("Cancel")))
{
    setWindowTitle(tr("Database browser"));
    QToolBar *tools = addToolBar(tr("Data"));
    tools->setMovable(false);
    tools->addAction(tr("Import text..."), this, &BrowserWindow::importText);
    tools->addWidget(new QLabel(tr(" separator ")));
    m_separator->setMaximumWidth(40);
    m_separator->setToolTip(tr("Field separator of text files; \\t for a tab"));
    tools->addWidget(m_separator);
    // The line rule in GB2312 (per line) is the library importer's own; the rest is CsvImporter.
    m_format->addItem(tr("Line rule"), int(Database::CsvImporter::Format::LineRule));
    m_format->addItem(tr("CSV"), int(Database::CsvImporter::Format::Rfc4180));
    m_format->setToolTip(tr("Line rule: each line trimmed, empty fields dropped, quotes kept as "
                            "text. CSV: quoted fields may hold separators and line breaks."));
    tools->addWidget(m_format);
    m_encoding->addItem(tr("GB2312"), int(Database::CsvImporter::Encoding::PerLine));
    m_encoding->addItem(tr("Detect"), int(Database::CsvImporter::Encoding::Automatic));
    m_encoding->addItem(tr("UTF-8"), int(Database::CsvImporter::Encoding::Utf8));
    m_encoding->addItem(tr("GB18030"), int(Database::CsvImporter::Encoding::Gb18030));
    m_encoding->setToolTip(tr("GB2312: UTF for a line that starts with a byte-order "
                              "mark. Detect: a byte-order mark, else UTF-8, else GB18030."));
    tools->addWidget(m_encoding);
    tools->addSeparator();
    tools->addAction(tr("Import spreadsheet..."), this, &BrowserWindow::importSpreadsheet);
    tools->addAction(tr("Export CSV..."), this, &BrowserWindow::exportCsv);
    tools->addAction(tr("Reload"), this, [this] {
        const QListWidgetItem *current = m_catalogue->currentItem();
        reloadCatalogue(current ? current->text() : QString());
    });

    m_table->setModel(m_model);
    m_table->setAlternatingRowColors(true);
    m_table->verticalHeader()->setDefaultSectionSize(fontMetrics().height() + 6);
    auto *splitter = new QSplitter;
    splitter->addWidget(m_catalogue);
    splitter->addWidget(m_table);
    splitter->setStretchFactor(1, 1);
    splitter->setSizes({160, 840});
    setCentralWidget(splitter);
    connect(m_catalogue, &QListWidget::currentTextChanged, this, &BrowserWindow::showDatabase);

    // Jobs run on the library's threads; the window hears of them through the watcher only.
    m_progress->setMaximumWidth(240);
    statusBar()->addPermanentWidget(m_progress);
    statusBar()->addPermanentWidget(m_cancel);
    m_progress->hide();
    m_cancel->hide();
    connect(&m_job, &QFutureWatcher<Database::JobResult>::progressRangeChanged, m_progress,
            &QProgressBar::setRange);
    connect(&m_job, &QFutureWatcher<Database::JobResult>::progressValueChanged, m_progress,
            &QProgressBar::setValue);
    connect(&m_job, &QFutureWatcher<Database::JobResult>::finished, this,
            &BrowserWindow::jobFinished);
    connect(m_cancel, &QPushButton::clicked, &m_job, &QFutureWatcher<Database::JobResult>::cancel);
    reloadCatalogue(QString());
    m_table->setFocus();
}

bool BrowserWindow::showDefaultAt(int row)
{
    if (m_model->databaseName().isEmpty() || row >= m_model->rowCount())
        return false;
    m_table->scrollTo(m_model->index(row, 0), QAbstractItemView::PositionAtTop);
    m_table->selectRow(row);
    return true;
}

QString BrowserWindow::visibleCells() const
{
    const QWidget *viewport = m_table->viewport();
    const int firstRow = m_table->rowAt(0);
    int lastRow = m_table->rowAt(viewport->height() - 1);
    lastRow = lastRow < 0 ? m_model->rowCount() - 1 : lastRow;
    const int firstColumn = m_table->columnAt(0);
    int lastColumn = m_table->columnAt(viewport->width() - 1);
    lastColumn = lastColumn < 0 ? m_model->columnCount() - 1 : lastColumn;
    QStringList lines{QStringLiteral("%1 %2 %3 %4")
                              .arg(firstRow)
                              .arg(lastRow - firstRow + 1)
                              .arg(firstColumn)
                              .arg(lastColumn - firstColumn + 1)};
    for (int row = firstRow; row <= lastRow; ++row) {
        QStringList cells;
        for (int column = firstColumn; column <= lastColumn; ++column)
            cells << m_model->index(row, column).data().toString();
        lines << cells.join(QLatin1Char('|'));
    }
    return lines.join(QLatin1Char('\n')) + QLatin1Char('\n');
}

// Lists the catalogue, the default database first and in bold, and shows one of them (the
// first if select is not there).
void BrowserWindow::reloadCatalogue(const QString &select)
{
    DatabaseManager::instance()->reload();
    const QStringList names = DatabaseManager::instance()->names();
    const QSignalBlocker blocker(m_catalogue);
    m_catalogue->clear();
    m_catalogue->addItems(names);
    if (!names.isEmpty() && names.first() == DatabaseManager::instance()->getDefaultDbName()) {
        QFont font = m_catalogue->item(0)->font();
        font.setBold(true);
        m_catalogue->item(0)->setFont(font);
    }
    m_catalogue->setCurrentRow(qMax(0, names.indexOf(select)));
    showDatabase();
}

void BrowserWindow::showDatabase()
{
    const QListWidgetItem *current = m_catalogue->currentItem();
    const QString name = current ? current->text() : QString();
    if (!m_model->setDatabaseName(name) && !name.isEmpty())
        statusBar()->showMessage(tr("%1 cannot be read").arg(name));
    else
        statusBar()->showMessage(tr("%1: %Ln rows", nullptr, m_model->rowCount()).arg(name));
}

// Shows the job's progress in the status bar until it ends, then calls done; false (and the
// job cancelled) while another job runs.
bool BrowserWindow::startJob(const QString &label, const QFuture<Database::JobResult> &job,
                             Done done)
{
    if (m_done) {
        QFuture<Database::JobResult>(job).cancel();
        statusBar()->showMessage(tr("Wait for the running job, or cancel it"));
        return false;
    }
    m_done = std::move(done);
    statusBar()->showMessage(label);
    m_progress->setRange(0, 0);
    m_progress->show();
    m_cancel->show();
    m_job.setFuture(job);
    return true;
}

void BrowserWindow::jobFinished()
{
    m_progress->hide();
    m_cancel->hide();
    const Done done = std::move(m_done);
    m_done = nullptr;
    if (done)
        done(Database::Jobs::resultOf(m_job.future()));
    emit jobEnded();
}

QString BrowserWindow::askSource(const QString &filter)
{
    return QFileDialog::getOpenFileName(this, tr("Import"), QString(), filter);
}

// Imports go to the user database directory, named after the source file.
QString BrowserWindow::targetFile(const QString &source) const
{
    const QDir userDir(Core::Settings::instance().dbUsrDirPath());
    userDir.mkpath(QStringLiteral("."));
    return userDir.filePath(QFileInfo(source).baseName() + QStringLiteral(".db"));
}

void BrowserWindow::imported(const Database::JobResult &result, const QString &source)
{
    reloadCatalogue(QFileInfo(source).baseName());
    if (result.cancelled)
        statusBar()->showMessage(tr("Cancelled; whole tables were kept"));
    else if (!result.ok)
        QMessageBox::warning(this, tr("Import failed"), result.log);
}

void BrowserWindow::importText()
{
    const QString source = askSource(tr("Text files (*.txt *.csv *.tsv);;All files (*)"));
    if (!source.isEmpty())
        importTextFrom(source);
}

void BrowserWindow::importTextFrom(const QString &source)
{
    QString separator = m_separator->text();
    separator.replace(QStringLiteral("\\t"), QStringLiteral("\t"));
    const auto format = Database::CsvImporter::Format(m_format->currentData().toInt());
    const auto encoding = Database::CsvImporter::Encoding(m_encoding->currentData().toInt());
    const QString target = targetFile(source);
    // The line rule in GB2312 (per line) is the library importer's own; the rest is CsvImporter.
    const QFuture<Database::JobResult> job
            = format == Database::CsvImporter::Format::LineRule
                    && encoding == Database::CsvImporter::Encoding::PerLine
            ? Database::Jobs::importText(source, target, separator)
            : Database::Jobs::importCsv(source, target, {format, encoding, separator});
    startJob(tr("Importing %1").arg(source), job,
             [this, source](const Database::JobResult &result) { imported(result, source); });
}

void BrowserWindow::importSpreadsheet()
{
    const QString source = askSource(tr("Spreadsheets (*.xlsx *.xlsm)"));
    if (source.isEmpty())
        return;
    startJob(tr("Importing %1").arg(source),
             Database::Jobs::importSpreadsheet(source, targetFile(source)),
             [this, source](Database::JobResult result) {
                 // The importer's log says only that the file was refused; the reader says why.
                 Core::XlsxReader reader;
                 if (!result.ok && !result.cancelled
                     && result.log == QObject::tr("Cannot open file %1 for reading.").arg(source)
                     && !reader.check(source))
                     result.log += QLatin1Char('\n') + reader.errorString();
                 imported(result, source);
             });
}

void BrowserWindow::exportCsv()
{
    const QString name = m_model->databaseName();
    if (name.isEmpty())
        return;
    const QString target
            = QFileDialog::getSaveFileName(this, tr("Export %1 as GBK CSV").arg(name),
                                           name + QStringLiteral(".csv"), tr("CSV files (*.csv)"));
    if (target.isEmpty())
        return;
    const QString source = DatabaseManager::instance()->path(name);
    startJob(tr("Exporting %1").arg(name), Database::Jobs::exportCsv(source, target),
             [this, name, target](const Database::JobResult &result) {
                 if (result.ok)
                     statusBar()->showMessage(tr("Exported %1 to %2").arg(name, target));
                 else if (result.cancelled)
                     statusBar()->showMessage(tr("Cancelled; %1 was left as it was").arg(target));
                 else
                     QMessageBox::warning(this, tr("Export failed"), result.log);
             });
}

bool BrowserWindow::importForSelfTest(const QString &source, const QString &screenshot)
{
    bool saved = screenshot.isEmpty();
    QMetaObject::Connection shot = connect(m_progress, &QProgressBar::valueChanged, this, [&] {
        // A tenth of the way, so that the bar shows the import well under way.
        const int range = m_progress->maximum() - m_progress->minimum();
        if (!saved && range > 0 && m_progress->value() - m_progress->minimum() >= range / 10)
            saved = grab().save(screenshot);
    });
    QEventLoop loop;
    connect(this, &BrowserWindow::jobEnded, &loop, &QEventLoop::quit);
    importTextFrom(source);
    loop.exec();
    disconnect(shot);
    return saved && m_catalogue->currentItem()
            && m_catalogue->currentItem()->text() == QFileInfo(source).baseName();
}
