#include "databasehandler.h"
