#ifndef DATABASE_DATABASECHANGELISTENER_H
#define DATABASE_DATABASECHANGELISTENER_H

#include <database/database_global.h>

namespace Database {

// Implemented by application objects that want to hear about catalogue changes.
// There is deliberately no virtual destructor: the catalogue never deletes a listener.
class ZQDATABASE_EXPORT DatabaseChangeListener
{
public:
    DatabaseChangeListener();
    DatabaseChangeListener(const DatabaseChangeListener &other);
    DatabaseChangeListener(DatabaseChangeListener &&other);
    DatabaseChangeListener &operator=(const DatabaseChangeListener &other);
    DatabaseChangeListener &operator=(DatabaseChangeListener &&other);

    virtual void onDBChanged() = 0;
};

} // namespace Database

#endif // DATABASE_DATABASECHANGELISTENER_H
