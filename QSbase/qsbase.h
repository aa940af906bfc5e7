/// \file
/// Every public header of the library.
#ifndef QSBASE_QSBASE_H
#define QSBASE_QSBASE_H

#include <QSbase/codec/binhex.h>
#include <QSbase/codec/encodedecode.h>
#include <QSbase/codec/hash.h>
#include <QSbase/compat.h>
#include <QSbase/errors.h>
#include <QSbase/export.h>
#include <QSbase/log/filelog.h>
#include <QSbase/log/log.h>
#include <QSbase/net/hostinfo.h>
#include <QSbase/net/ftp.h>
#include <QSbase/net/http.h>
#include <QSbase/net/libraryloader.h>
#include <QSbase/net/socket.h>
#include <QSbase/net/url.h>
#include <QSbase/process.h>
#include <QSbase/support/bufferedfile.h>
#include <QSbase/support/cleanup.h>
#include <QSbase/support/filesupport.h>
#include <QSbase/support/findfile.h>
#include <QSbase/support/libxmlsupport.h>
#include <QSbase/support/mapfile.h>
#include <QSbase/support/paths.h>
#include <QSbase/support/qsfile.h>
#include <QSbase/support/uniquename.h>
#include <QSbase/support/zlibsupport.h>
#include <QSbase/sync/criticalsection.h>
#include <QSbase/sync/event.h>
#include <QSbase/sync/globalmutex.h>
#include <QSbase/sync/rwlock.h>
#include <QSbase/sync/semaphore.h>
#include <QSbase/text/bitaccessor.h>
#include <QSbase/text/datetime.h>
#include <QSbase/text/guid.h>
#include <QSbase/text/namematcher.h>
#include <QSbase/text/qschar.h>
#include <QSbase/text/qsstring.h>
#include <QSbase/text/stringcache.h>
#include <QSbase/text/utf8.h>
#include <QSbase/thread/executeevery.h>
#include <QSbase/thread/qsthread.h>
#include <QSbase/thread/threadmq.h>

#endif
