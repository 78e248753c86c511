// A module with an SQLite of its own, as a plug-in that bundles SQLite is.
extern "C" __attribute__((visibility("default"))) const char *sqlite3_libversion()
{
    return "bundled";
}
