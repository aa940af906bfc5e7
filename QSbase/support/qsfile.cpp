#include <QSbase/support/qsfile.h>
