#include <QSbase/codec/encodedecode.h>
