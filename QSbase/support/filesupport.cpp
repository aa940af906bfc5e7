#include <QSbase/support/filesupport.h>
