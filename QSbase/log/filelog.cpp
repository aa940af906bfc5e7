#include <QSbase/log/filelog.h>
