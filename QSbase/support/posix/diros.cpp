#include <QSbase/support/diros.h>
