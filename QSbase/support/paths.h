/// \file
/// Path and file-name rules. Text in, text out: nothing here touches the file system but QsGetSysTempPath.
///
/// The separator of every path built here is "\"; "/" is accepted on input everywhere. A drive is a letter and a colon
/// ("C:") or the "\\server\share" prefix of a UNC path. Texts are bytes; names need not be valid in any encoding.
/// All functions are reentrant, keep no state and may be called from any thread.
#ifndef QSBASE_SUPPORT_PATHS_H
#define QSBASE_SUPPORT_PATHS_H

#include <string>

#include <QSbase/export.h>

/// The name with every "/" as "\". A name of 2048 characters or more is logged as an error
/// ("QsTranslateFilename: filename of %d characters found!") and gives an empty text; so every Extract function gives
/// an empty text for it as well.
QSBASE_API std::string QsTranslateFilename(const std::string& name);

/// The drive: "C:", or "\\server\share" without a trailing separator; empty if there is none. The path is translated
/// first.
///
///     ExtractFileDrive("//srv/share/x")   // "\\srv\share"
///     ExtractFileDrive("\\\\srv\\")       // "\\srv"
///
/// A UNC path ends its drive at the second "\" behind the server's first character, also when the two are neighbours:
/// "\\srv\\x" gives "\\srv\".
QSBASE_API std::string ExtractFileDrive(const std::string& path);

/// The directory part with its trailing separator, or with the colon of a bare drive ("C:file" gives "C:"); empty if
/// there is neither. The path is translated first.
QSBASE_API std::string ExtractFilePath(const std::string& path);

/// Name and extension without the directory; empty for a path that ends in a separator. The path is translated first.
QSBASE_API std::string ExtractFileName(const std::string& path);

/// The extension with its leading dot ("a.tar.gz" gives ".gz"), or empty. The path is translated first. A text that
/// begins with its only dot (".profile") has none; the same name behind a directory ("dir\.profile") counts as all
/// extension.
QSBASE_API std::string ExtractFileExt(const std::string& path);

/// The name without directory and without extension.
QSBASE_API std::string ExtractFileBaseName(const std::string& path);

/// The whole path without its extension, the directory kept: "C:\a\b.txt" gives "C:\a\b". An older form: it knows only
/// "\" as a separator and translates nothing, so a dot before a "/" counts ("a.b/c" gives "a").
QSBASE_API std::string CAL_GetFileBaseName(const std::string& path);

/// The extension without its dot: "C:\a\b.txt" gives "txt"; empty if there is none. Separators as in
/// CAL_GetFileBaseName. Unlike ExtractFileExt, a leading dot counts: ".profile" gives "profile".
QSBASE_API std::string CAL_GetFileExtension(const std::string& path);

/// CAL_GetFileExtension in lower case (QsString::ToLower).
QSBASE_API std::string CAL_GetFileExtensionLC(const std::string& path);

/// QsAppendFileslash(dir) + name. An empty dir leaves a relative name relative.
QSBASE_API std::string ConstructPath(const std::string& dir, const std::string& name);

/// QsAppendFileslash(dir) + ExtractFileBaseName(file) + ext. The extension is taken as given: with its dot.
///
///     ConstructPath("C:\\logs", "app.log", ".bak")   // "C:\logs\app.bak"
QSBASE_API std::string ConstructPath(const std::string& dir, const std::string& file, const std::string& ext);

/// The same below two directories: QsAppendFileslash(dir1) + QsAppendFileslash(dir2) + base name + ext.
QSBASE_API std::string ConstructPath(const std::string& dir1, const std::string& dir2, const std::string& file,
                                     const std::string& ext);

/// The path with a "\" added unless it is empty or already ends in "\" or "/".
QSBASE_API std::string QsAppendFileslash(const std::string& path);

/// QsAppendFileslash on the text itself.
QSBASE_API void QsAppendFileslashInPlace(std::string& path);

/// The path with exactly one trailing "\" or "/" removed, if there is one; also from a root: "C:\" gives "C:" and "\"
/// gives an empty text.
QSBASE_API std::string QsRemoveTerminatingFileslash(const std::string& path);

/// QsRemoveTerminatingFileslash on the text itself.
QSBASE_API void QsRemoveTerminatingFileslashInPlace(std::string& path);

/// True if the path begins with "\\" or "//". A mixture of the two does not count.
QSBASE_API bool QsIsUNCPath(const std::string& path);

/// True if the path has a drive (ExtractFileDrive is not empty). "C:x" is absolute by this rule; "\dir\file", rooted
/// on the current drive, is not.
QSBASE_API bool QsIsAbsolutePath(const std::string& path);

/// The directory for temporary files, with a trailing "\". On Linux the directory that TMPDIR names, or else "\tmp\";
/// one counts only if it is a directory in which this process may create files. On Windows what GetTempPathA says.
/// \throws ExBase "Could not get temp path" if there is none.
QSBASE_API std::string QsGetSysTempPath();

/// A single name that every file system accepts.
///
/// Control characters and the nine characters " * / : < > ? \ | become "_"; a trailing blank or dot gets a "_" behind
/// it; a reserved device name (con, prn, aux, nul, com1 to com9, lpt1 to lpt9, clock$; in any case and with any
/// extension) gets a "_" behind its stem. An empty name stays empty.
///
///     QsMakeCompatibleFilename("a:b?.")       // "a_b_._"
///     QsMakeCompatibleFilename("Com3.txt")    // "Com3_.txt"
QSBASE_API std::string QsMakeCompatibleFilename(const std::string& name);

/// A path whose every component has been made compatible; at most 259 characters (the rest is cut off).
///
/// The drive is kept (with "\" for "/"), and so are "." and ".." before the last component. Behind the drive only "\"
/// separates: a "/" stands inside a component and becomes "_". An empty component that is not the last becomes "_",
/// so a rooted path without a drive ("\tmp\x") becomes the relative "_\tmp\x". The one character behind a drive is
/// taken for its separator whatever it is: "C:x\y" gives "C:\_\y". An empty path, and one that is all drive, stay
/// unchanged.
QSBASE_API std::string QsMakeCompatibleFilepath(const std::string& path);

/// The path as the operating system takes it: on Linux with every "\" as "/", on Windows unchanged. For hosts that
/// hand a path of this library to another one.
QSBASE_API std::string QsNativePath(const std::string& path);

#endif
