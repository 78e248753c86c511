#include "xlsxtodbgenerator.h"
