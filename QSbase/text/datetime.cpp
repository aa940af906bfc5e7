#include <QSbase/text/datetime.h>
