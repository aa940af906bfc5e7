#include <QSbase/process.h>
