#include <QSbase/net/http.h>
