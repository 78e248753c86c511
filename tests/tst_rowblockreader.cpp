#include <database/databasehandler.h>
#include <database/databasehandlerfactory.h>
#include <database/databasemanager.h>
#include <database/rowblockreader.h>
#include <database/rowtextwriter.h>

#include "rowtables.h"
#include "testsupport.h"

#include <QtTest>

using Database::DatabaseHandlerFactory;
using Database::RowBlockReader;
using TestSupport::generated;
using TestSupport::table;

namespace {

// Runs of rows at block and table edges, before the first and past the last: (first, count).
const QList<QPair<int, int>> Runs = {{100006, 4}, {49990, 20}, {-3, 5}, {0, 3}, {255, 2},
                                     {50298, 4}, {150000, 3}, {50010, 1}};

} // namespace

class tst_RowBlockReader : public QObject
{
    Q_OBJECT

private slots:
    void init() { Database::DatabaseManager::init(), DatabaseHandlerFactory::init(); }
    void cleanup() { DatabaseHandlerFactory::destruct(), Database::DatabaseManager::destruct(); }
    void matchesRecordValue_data();
    void matchesRecordValue();
    void stopsWithTheSinkAndTheHandler();
    void writerTellsARefusedWrite();

private:
    Database::DatabaseHandler *open(const QString &sql)
    {
        const QString name = m_catalogue.add(sql);
        return name.isEmpty() ? nullptr
                              : DatabaseHandlerFactory::instance()->registSqlDatabase(&m_reader, name);
    }

    TestSupport::TempCatalogue m_catalogue;
    Database::DatabaseObject m_reader;
};

void tst_RowBlockReader::matchesRecordValue_data()
{
    QTest::addColumn<QString>("sql");
    QTest::addColumn<int>("validCells"); // of the runs above, over every field

    QTest::newRow("importer layout") << generated(1, 50000) + generated(2, 50000) + generated(3, 7) << 66;
    // table2 lacks column2 and ends early: its rows past 10 are past its end.
    QTest::newRow("odd middle table")
            << generated(1, 50000) + table(2, 10, "id INTEGER PRIMARY KEY, column1 TEXT", "NULL, i")
                    + generated(3, 50000)
            << 52;
    QTest::newRow("no id, ID column kept") << table(1, 50000, "ID INTEGER, b TEXT", "i, 'b' || i")
            + table(2, 300, "ID INTEGER, b TEXT", "-i, 'z' || i") << 60;
    // An index orders a one-column select differently from the table.
    QTest::newRow("indexed column")
            << generated(1, 50000) + "CREATE INDEX i2 ON table1 (column2);" + generated(2, 3) << 40;
    // Blobs, big integers and malformed UTF-8, which SQLite decodes for the driver.
    QTest::newRow("stored types") << table(1, 50000, "id INTEGER PRIMARY KEY, a, b", "NULL, CASE i % 3 "
            "WHEN 0 THEN x'00ff41' WHEN 1 THEN 9007199254740993 * i ELSE CAST(x'41c0af42e29c' AS "
            "TEXT) END, 1e300 / (i + 1)") << 34;
}

// Every cell of the runs, as values and as text, and of asked-for columns in any order (one
// out of range), equals recordValue's.
void tst_RowBlockReader::matchesRecordValue()
{
    QFETCH(QString, sql);
    QFETCH(int, validCells);
    Database::DatabaseHandler *handler = open("BEGIN;" + sql + "COMMIT;");
    QVERIFY(handler);
    RowBlockReader reader;
    QVERIFY(reader.setHandler(*handler));
    const int fields = handler->getFieldNames().size();
    QCOMPARE(reader.fieldNames(), handler->getFieldNames());
    QList<int> all;
    for (int c = 0; c < fields; ++c)
        all << c;
    int valid = 0;
    for (const QList<int> &columns : {all, QList<int>{fields - 1, 0, fields, fields - 1}}) {
        for (const auto &run : Runs) {
            std::vector<QVariant> values;
            QVERIFY(reader.readValues(run.first, run.second, columns, &values));
            QCOMPARE(int(values.size()), run.second * columns.size());
            QList<QByteArray> texts;
            qint64 next = run.first;
            QVERIFY(reader.readText(run.first, run.first + run.second, columns,
                                    [&](qint64 row, const RowBlockReader::TextCell *cells) {
                                        if (row != next++)
                                            return false;
                                        for (int c = 0; c < columns.size(); ++c)
                                            texts << QByteArray(cells[c].data, cells[c].size);
                                        return true;
                                    }));
            QCOMPARE(size_t(texts.size()), values.size());
            for (int i = 0; i < int(values.size()); ++i) {
                const QVariant &value = values[size_t(i)];
                const int row = run.first + i / columns.size();
                const QVariant expected
                        = handler->recordValue(row, columns.at(i % columns.size()), 50000);
                QVERIFY2(value.userType() == expected.userType() && value.isNull() == expected.isNull()
                         && value == expected && texts.at(i) == expected.toString().toUtf8(),
                         qPrintable(QString("row %1 cell %2").arg(row).arg(i)));
                valid += expected.isValid() && columns == all;
            }
        }
    }
    QCOMPARE(valid, validCells);
}

// The sink sees rows in order and stops the read when it says so. With its handler gone the
// connection is closed: reads report that and give invalid cells, as recordValue does. (A file
// that is not a database: tst_databasetablemodel.)
void tst_RowBlockReader::stopsWithTheSinkAndTheHandler()
{
    Database::DatabaseHandler *handler = open(generated(1, 50000) + generated(2, 5));
    QVERIFY(handler);
    RowBlockReader reader;
    QVERIFY(reader.setHandler(*handler));
    QList<qint64> rows;
    QVERIFY(!reader.readText(49998, 50005, {0}, [&](qint64 row, const RowBlockReader::TextCell *) {
        rows << row;
        return rows.size() < 3;
    }));
    QCOMPARE(rows, (QList<qint64>{49998, 49999, 50000}));

    DatabaseHandlerFactory::instance()->unregistSqlDatabase(&m_reader);
    std::vector<QVariant> values;
    QVERIFY(!reader.readValues(0, 2, {0, 1}, &values));
    QVERIFY(values == std::vector<QVariant>(4));
    QVERIFY(!reader.readText(0, 1, {0},
                             [](qint64, const RowBlockReader::TextCell *) { return true; }));
}

// A device that refuses the rows fails the writer, with the system's reason.
void tst_RowBlockReader::writerTellsARefusedWrite()
{
    QFile full("/dev/full");
    QVERIFY(full.open(QIODevice::WriteOnly | QIODevice::Unbuffered));
    Database::RowTextWriter writer(&full, Database::RowTextWriter::Csv, {"a"});
    writer.addRow(QStringList{"1"});
    QVERIFY(!writer.finish());
    QCOMPARE(writer.errorString(), QString("No space left on device"));
}

QTEST_MAIN(tst_RowBlockReader)
#include "tst_rowblockreader.moc"
