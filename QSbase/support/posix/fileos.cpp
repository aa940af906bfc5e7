#include <QSbase/support/fileos.h>
