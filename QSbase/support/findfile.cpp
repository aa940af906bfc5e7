#include <QSbase/support/findfile.h>
