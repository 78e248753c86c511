#ifndef BROWSERWINDOW_H
#define BROWSERWINDOW_H

#include <database/jobresult.h>

#include <QFutureWatcher>
#include <QMainWindow>

#include <functional>

class QComboBox;
class QLineEdit;
class QListWidget;
class QProgressBar;
class QPushButton;
class QTableView;

namespace Database {
class DatabaseTableModel;
}

// The catalogue on the left, the selected database on the right, import and export above.
class BrowserWindow : public QMainWindow
{
    Q_OBJECT

public:
    explicit BrowserWindow(QWidget *parent = nullptr);

    // Shows the database at the top of the catalogue (the default one) and scrolls to row;
    // false when it cannot be shown.
    bool showDefaultAt(int row);
    // The cells the table shows: "first row, row count, first column, column count" on the
    // first line, then one line per row with the cells joined by '|'.
    QString visibleCells() const;
    // Imports source as the "Import text..." action does and saves the window to screenshot
    // once the import has made progress; false when either fails.
    bool importForSelfTest(const QString &source, const QString &screenshot);

signals:
    void jobEnded();

private:
    using Done = std::function<void(const Database::JobResult &)>;

    void reloadCatalogue(const QString &select);
    void showDatabase();
    void importText();
    void importTextFrom(const QString &source);
    void importSpreadsheet();
    QString askSource(const QString &filter);
    QString targetFile(const QString &source) const;
    void imported(const Database::JobResult &result, const QString &source);
    void exportCsv();
    bool startJob(const QString &label, const QFuture<Database::JobResult> &job, Done done);
    void jobFinished();

    QListWidget *m_catalogue;
    QTableView *m_table;
    QLineEdit *m_separator;
    QComboBox *m_format;
    QComboBox *m_encoding;
    Database::DatabaseTableModel *m_model;
    QProgressBar *m_progress;
    QPushButton *m_cancel;
    QFutureWatcher<Database::JobResult> m_job;
    Done m_done;
};

#endif // BROWSERWINDOW_H
