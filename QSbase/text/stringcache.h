/// \file
/// Small integers for strings: each distinct string gets an id, in order of first appearance.
///
/// A StringCache takes no lock: const members may run in several threads at once while nothing changes the object; all
/// else needs the caller's lock.
#ifndef QSBASE_TEXT_STRINGCACHE_H
#define QSBASE_TEXT_STRINGCACHE_H

#include <map>
#include <string>
#include <vector>

#include <QSbase/export.h>

/// Hands out ids 0, 1, 2, ... and finds the strings behind them. Strings are bytes, zero bytes included. A look-up
/// takes time proportional to the logarithm of their number, whatever the strings are.
///
/// \code
/// StringCache cache;
/// unsigned int id = 0;
/// cache.GetID("From", id);  // 0
/// cache.GetID("To", id);    // 1
/// cache.GetID("From", id);  // 0 again
/// \endcode
class QSBASE_API StringCache {
 public:
  StringCache();
  /// A copy of its own, with strings of its own. Throws std::bad_alloc.
  StringCache(const StringCache& other);
  /// As the copy constructor; this cache is as it was when that throws.
  StringCache& operator=(const StringCache& other);
  virtual ~StringCache();

  /// `id` gets the string's id, a new one when the string is not known yet. Returns false with an id of 0 and the cache
  /// as it was when there is no memory, or when all 2^32 ids are taken.
  bool GetID(const std::string& text, unsigned int& id);
  /// `text` gets the string of an id. Returns false with an empty text when there is none. Throws std::bad_alloc,
  /// with an empty text too.
  bool GetString(unsigned int id, std::string& text) const;
  /// Forgets all strings; the next one gets the id 0.
  void Clear();
  /// Both tables as a text for people, line by line; strings are written as they are. Ids are plain digits in every
  /// locale. Throws std::bad_alloc. Of "b", then "a":
  /// \code
  /// Text-cache: size=2
  /// string --> id table:
  /// {
  ///   ID(a) = 1
  ///   ID(b) = 0
  /// }
  /// id --> string table:
  /// {
  ///   String(0) = b
  ///   String(1) = a
  /// }
  /// \endcode
  /// The four lines within braces begin with a TAB.
  std::string Description() const;

 protected:
  /// In byte order.
  std::map<std::string, unsigned int> _ids;
  /// By id, the keys of `_ids`. A derived class may put a null in: that id then has no string any more.
  std::vector<const std::string*> _strings;
};

#endif
