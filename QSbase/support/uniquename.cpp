#include <QSbase/support/uniquename.h>
