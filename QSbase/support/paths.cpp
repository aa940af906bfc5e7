#include <QSbase/support/paths.h>
