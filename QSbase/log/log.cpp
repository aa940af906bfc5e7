#include <QSbase/log/log.h>
