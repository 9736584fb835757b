#include "WLHIDAccess/WLHIDAccess.h"

extern "C" const double WLHIDAccessVersionNumber = 1.0;
extern "C" const char WLHIDAccessVersionString[] =
    "@(#)PROGRAM:WLHIDAccess  PROJECT:WLHIDAccess-1\n";
