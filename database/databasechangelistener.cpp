#include "databasechangelistener.h"

namespace Database {

DatabaseChangeListener::DatabaseChangeListener() = default;
DatabaseChangeListener::DatabaseChangeListener(const DatabaseChangeListener &) = default;
DatabaseChangeListener::DatabaseChangeListener(DatabaseChangeListener &&) = default;
DatabaseChangeListener &DatabaseChangeListener::operator=(const DatabaseChangeListener &) = default;
DatabaseChangeListener &DatabaseChangeListener::operator=(DatabaseChangeListener &&) = default;

} // namespace Database
