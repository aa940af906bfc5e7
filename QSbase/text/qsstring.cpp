#include <QSbase/text/qsstring.h>
