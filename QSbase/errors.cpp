#include <QSbase/errors.h>
