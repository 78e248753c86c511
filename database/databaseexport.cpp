#include "databaseexport.h"
