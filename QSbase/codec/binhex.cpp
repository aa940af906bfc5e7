#include <QSbase/codec/binhex.h>
