#include <QSbase/text/qschar.h>
