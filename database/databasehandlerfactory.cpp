#include "databasehandlerfactory.h"
