#include "databasegenerator.h"
