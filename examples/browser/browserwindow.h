#ifndef BROWSERWINDOW_H
#define BROWSERWINDOW_H

#include <QMainWindow>

#include <functional>

class QComboBox;
class QLineEdit;
class QListWidget;
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

private:
    enum class Outcome { Done, Failed, Cancelled };

    void reloadCatalogue(const QString &select);
    void showDatabase();
    void importText();
    void importSpreadsheet();
    QString askSource(const QString &filter);
    QString targetFile(const QString &source) const;
    void imported(Outcome outcome, const QString &log, const QString &source);
    void exportCsv();
    Outcome withProgress(const QString &label, const std::function<bool()> &work);

    QListWidget *m_catalogue;
    QTableView *m_table;
    QLineEdit *m_separator;
    QComboBox *m_format;
    QComboBox *m_encoding;
    Database::DatabaseTableModel *m_model;
};

#endif // BROWSERWINDOW_H
