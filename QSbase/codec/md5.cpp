#include <QSbase/codec/hash.h>
