/// \file
/// A blocking TCP socket over IPv4, and the start and stop of the system's sockets.
///
/// A QsSocket is used by one thread at a time and takes no lock; different sockets are independent of each other. Error
/// codes are Winsock numbers (10048 for an address in use, ...) on both targets. After an operation that failed at the
/// system QsGetLastError() gives the system's own code. Only reads, writes and names that cannot be resolved are
/// logged. No write raises SIGPIPE, a signal ends no operation, and programs that are started inherit no socket.
#ifndef QSBASE_NET_SOCKET_H
#define QSBASE_NET_SOCKET_H

#include <memory>

#include <QSbase/export.h>

/// Starts (phase 1) and stops (phase 2) the system's sockets for the process; any other phase does nothing. Phase 1
/// comes before the first use of a socket, phase 2 after the last; Windows counts them. Any thread may call.
///
/// Phase 1 logs info of level 1 (0x10000001) "WinSock Description: %s, Systemstatus: %s, MaxSockets: %d", then
/// "WinSock DLL 2.2 or higher found". On Linux, where nothing needs a start, the two texts are "BSD sockets" and
/// "Running" and the number is that of the descriptors that the process may open.
///
/// What fails is logged as an error of level 5 with alert number 5 (0x40000505). For phase 1: 10014 "Pointer to the
/// WSADATA struct is invalid", 10036 "A blocking Windows Sockets 1.1 operation is in progress", 10067 "Limit of taks
/// supported by this Windows Socket implementation has reached", 10091 "Network subsystem not ready for network
/// communication", 10092 "Requested version not provided by this Windows Sockets implementation", and "Your WinSock DLL
/// does not Support 2.2" for a version that is another. For phase 2: 10036 "A blocking Windows Sockets 1.1 call is in
/// progress, or the service provider is still processing a callback function", 10050 "The network subsystem has
/// failed", 10093 "Windows Sockets not initialized". Other codes are silent.
QSBASE_API void InitQsSocket(int phase);

/// One end of a connection, or a listener.
///
/// Hosts are names or dotted addresses, resolved by DNSQuery() (its first address counts). Null stands for any address
/// of this machine, as "0.0.0.0" does, and in Connect() an empty text too. A name without an address, for which the
/// error "could not resolve hostname %s" is logged and `errno` set to EINVAL (22), never counts as any address. A port
/// outside 0 to 65535 is none.
///
/// A socket whose record could not be allocated gives the value for a missing socket from every operation.
///
/// \code
/// QsSocket socket;
/// if (socket.Connect("news.example.org", 119, 0) == 0) {
///   char line[512];
///   const int count = socket.Read(line, sizeof line);  // -1 failed, 0 the peer has closed
/// }
/// \endcode
class QSBASE_API QsSocket {
 public:
  /// Without a system socket. Does not throw.
  QsSocket();
  /// Closes the socket.
  ~QsSocket();
  QsSocket(const QsSocket&) = delete;
  QsSocket& operator=(const QsSocket&) = delete;

  /// Opens a socket, bound to an address of this machine. A socket that was open is closed first.
  /// \param port  0 asks the system for a free one.
  /// \returns 0; -1 without a record, -5 for an empty host, -2 when the host has no address: these leave everything as
  ///   it was. Otherwise a Winsock number, and no socket is open: 10048 when somebody listens there already, 10049 when
  ///   the address is not this machine's, 10022 for a port that is none.
  ///
  /// On Linux the address is bound with SO_REUSEADDR, so that a server which is started again need not wait for the
  /// connections of its predecessor; that is what Windows does by default. Two sockets may be bound to one address that
  /// way while neither listens: the second then fails in Listen().
  int Bind(const char* host, int port);

  /// Makes a bound socket listen.
  /// \param backlog  how many connections may wait to be accepted; a negative number means 0x7fffffff. The system has a
  ///   limit of its own.
  /// \returns 0, -1 without a socket, otherwise a Winsock number.
  int Listen(int backlog);

  /// Waits for a connection and gives it to \p client, which is closed first when it is open.
  /// \returns 0, -1 when this or \p client has no record, -2 on failure; then \p client has no socket.
  int Accept(QsSocket& client);

  /// Opens a socket (TCP_NODELAY) and connects it to a host. A socket that was open is closed first, whatever comes of
  /// it. Any address is this machine on Linux; Windows refuses to connect to it (10049).
  /// \param timeout  not used (kept). The system gives up in its own time (21 seconds on Windows, about two minutes on
  ///   Linux); when a signal interrupts it, the rest may take 30 seconds more.
  /// \returns 0; -1 without a record, when the host has no address, when there is no connection. Then no socket is
  ///   open.
  int Connect(const char* host, int port, int timeout);

  /// Waits until there is something to read: data, the end of the stream, an error, on a listener a connection.
  /// \param seconds  how long at most; no limit when negative.
  /// \returns 1, 0 when the time ran out, -1 when urgent (out-of-band) data has come or the socket is no good, -2
  ///   without a socket.
  int WaitForData(int seconds);

  /// The peer's address in host byte order (127.0.0.1 is 0x7f000001, others may be negative); 0 when there is none.
  int GetRemoteIP() const;

  /// The system's socket, -1 for none. It stays this object's. Its 32 bits are enough for Windows of 64 bits too, whose
  /// handles use no more.
  int GetSocket() const;

  /// Reads once, waiting for something to come.
  /// \returns how many bytes were read, from 1 to \p length; 0 at the end of the stream and for a length below 1; -1
  ///   without a socket and on failure, which is logged as error "read from socket failed (%s)" with the text of the
  ///   Winsock number, empty for an unknown one; -3 for a null buffer.
  int Read(void* buffer, int length);

  /// Reads until \p length bytes have come or the stream has ended.
  ///
  /// Mind: every Read() begins at the start of \p buffer (kept: callers rely on it), so bytes that come in several
  /// pieces land upon each other: "ab" and "cd" read with length 4 leave "cd" at the start and give 4. For bytes in
  /// their order write the loop:
  ///
  /// \code
  /// int done = 0;
  /// while (done < length) {
  ///   const int count = socket.Read(buffer + done, length - done);
  ///   if (count <= 0) { break; }
  ///   done += count;
  /// }
  /// \endcode
  ///
  /// \returns the number of bytes read, less than \p length at the end of the stream; a negative result of Read() at
  ///   once.
  int ReadBytes(void* buffer, int length);

  /// Sends once, waiting for room.
  /// \returns how many bytes the system has taken, at most \p length; 0 for a length below 1; -1 without a socket and
  ///   on failure (a null buffer is one), which is logged as error "write to socket failed (%s)", as by Read().
  int Write(const void* buffer, int length);

  /// Writes until \p length bytes are sent.
  ///
  /// Mind: every Write() begins at the start of \p buffer (kept: callers rely on it), so when the system takes less
  /// than everything at once, it gets the first bytes again. Write the loop that ReadBytes() shows, with Write().
  ///
  /// \returns the number of bytes sent; a negative result of Write() at once.
  int WriteBytes(const void* buffer, int length);

  /// Closes the socket. Nothing happens without one.
  void Close();

 private:
  struct SocketRecord;
  std::unique_ptr<SocketRecord> _record;
};

#endif
