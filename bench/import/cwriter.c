/* The floor: SQLite's C API writing the generated layout (id INTEGER PRIMARY KEY AUTOINCREMENT,
 * column1 .. columnN TEXT; tables of 50,000 rows, one transaction each) from comma-separated
 * lines, ROWS rows per INSERT statement. No decoding, no trimming: only the writing.
 *   zq_bench_cwriter SOURCE DATABASE ROWS_PER_STATEMENT */
#include <sqlite3.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

enum { BatchRows = 50000, MaxColumns = 64 };

static sqlite3_stmt *prepare(sqlite3 *db, int table, int columns, int rows)
{
    size_t size = 64 + (size_t)rows * (8 + 3 * (size_t)columns);
    char *sql = malloc(size);
    int n = snprintf(sql, size, "insert into table%d values ", table);
    for (int r = 0; r < rows; ++r) {
        n += snprintf(sql + n, size - n, "%s(NULL", r ? "," : "");
        for (int c = 0; c < columns; ++c)
            n += snprintf(sql + n, size - n, ",?");
        n += snprintf(sql + n, size - n, ")");
    }
    sqlite3_stmt *statement = NULL;
    if (sqlite3_prepare_v2(db, sql, n, &statement, NULL) != SQLITE_OK) {
        fprintf(stderr, "%s\n", sqlite3_errmsg(db));
        exit(1);
    }
    free(sql);
    return statement;
}

/* Writes rows [0, count) of the batch into table, perStatement rows per INSERT. */
static void writeBatch(sqlite3 *db, int table, int columns, char **lines, int count,
                       int perStatement)
{
    char sql[4096];
    int n = snprintf(sql, sizeof sql, "CREATE TABLE table%d (id INTEGER PRIMARY KEY AUTOINCREMENT,", table);
    for (int c = 1; c <= columns; ++c)
        n += snprintf(sql + n, sizeof sql - n, "%s column%d TEXT ", c > 1 ? "," : "", c);
    snprintf(sql + n, sizeof sql - n, " )");
    sqlite3_exec(db, sql, NULL, NULL, NULL);
    sqlite3_exec(db, "BEGIN", NULL, NULL, NULL);
    sqlite3_stmt *full = prepare(db, table, columns, perStatement);
    for (int first = 0; first < count; first += perStatement) {
        int rows = count - first < perStatement ? count - first : perStatement;
        sqlite3_stmt *statement = rows == perStatement ? full : prepare(db, table, columns, rows);
        int parameter = 1;
        for (int r = 0; r < rows; ++r) {
            char *field = lines[first + r];
            int c = 0;
            for (char *end; c < columns; ++c, field = end + 1) {
                end = strchr(field, ',');
                if (!end)
                    end = field + strlen(field);
                sqlite3_bind_text(statement, parameter++, field, (int)(end - field), SQLITE_STATIC);
                if (!*end)
                    break;
            }
            for (++c; c < columns; ++c)
                sqlite3_bind_text(statement, parameter++, "", 0, SQLITE_STATIC);
        }
        if (sqlite3_step(statement) != SQLITE_DONE) {
            fprintf(stderr, "%s\n", sqlite3_errmsg(db));
            exit(1);
        }
        sqlite3_reset(statement);
        if (statement != full)
            sqlite3_finalize(statement);
    }
    sqlite3_finalize(full);
    sqlite3_exec(db, "COMMIT", NULL, NULL, NULL);
}

int main(int argc, char **argv)
{
    if (argc < 4) {
        fprintf(stderr, "usage: %s SOURCE DATABASE ROWS_PER_STATEMENT\n", argv[0]);
        return 2;
    }
    FILE *in = fopen(argv[1], "rb");
    sqlite3 *db = NULL;
    if (!in || sqlite3_open(argv[2], &db) != SQLITE_OK)
        return 1;
    const int perStatement = atoi(argv[3]) > 0 ? atoi(argv[3]) : 1;
    char **lines = calloc(BatchRows, sizeof *lines);
    char *line = NULL;
    size_t capacity = 0;
    ssize_t length;
    int count = 0, table = 1, columns = 0;
    while ((length = getline(&line, &capacity, in)) >= 0) {
        while (length > 0 && (line[length - 1] == '\n' || line[length - 1] == '\r'))
            line[--length] = 0;
        if (!length)
            continue;
        int fields = 1;
        for (char *p = line; (p = strchr(p, ',')); ++p)
            ++fields;
        if (fields > columns)
            columns = fields < MaxColumns ? fields : MaxColumns;
        lines[count++] = strdup(line);
        if (count == BatchRows) {
            writeBatch(db, table++, columns, lines, count, perStatement);
            for (int i = 0; i < count; ++i)
                free(lines[i]);
            count = 0;
        }
    }
    if (count)
        writeBatch(db, table, columns, lines, count, perStatement);
    for (int i = 0; i < count; ++i)
        free(lines[i]);
    free(lines);
    free(line);
    fclose(in);
    return sqlite3_close(db) == SQLITE_OK ? 0 : 1;
}
