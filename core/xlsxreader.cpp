#include "xlsxreader.h"
