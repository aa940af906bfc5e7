#include <QSbase/sync/criticalsection.h>
