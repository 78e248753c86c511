#include "memorydatabasemanager.h"
