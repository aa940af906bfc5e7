#include <QSbase/support/cleanup.h>
