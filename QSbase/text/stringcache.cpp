#include <QSbase/text/stringcache.h>

#include <cstddef>
#include <limits>
#include <new>
#include <stdexcept>
#include <string_view>

StringCache::StringCache() = default;

StringCache::StringCache(const StringCache& other) : _ids(other._ids), _strings(other._strings.size(), nullptr) {
  for (const auto& [text, id] : _ids) {
    if (other._strings[id] != nullptr) {
      _strings[id] = &text;
    }
  }
}

StringCache& StringCache::operator=(const StringCache& other) {
  StringCache copy(other);
  _ids.swap(copy._ids);
  _strings.swap(copy._strings);
  return *this;
}

StringCache::~StringCache() = default;

namespace {

// Makes room for one more, a good deal at a time.
void ReserveNext(std::vector<const std::string*>& strings) {
  if (strings.size() == strings.capacity()) {
    strings.reserve(strings.size() < 16 ? 16 : strings.size() * 2);
  }
}

}  // namespace

bool StringCache::GetID(const std::string& text, unsigned int& id) {
  id = 0;
  const auto place = _ids.lower_bound(text);
  if (place != _ids.end() && place->first == text) {
    id = place->second;
    return true;
  }
  if (_strings.size() > std::numeric_limits<unsigned int>::max()) {
    return false;
  }
  try {
    ReserveNext(_strings);
    const auto next = static_cast<unsigned int>(_strings.size());
    const auto added = _ids.emplace_hint(place, text, next);
    _strings.push_back(&added->first);
    id = next;
    return true;
  } catch (const std::bad_alloc&) {
    return false;
  } catch (const std::length_error&) {
    return false;
  }
}

bool StringCache::GetString(unsigned int id, std::string& text) const {
  text.clear();
  if (id >= _strings.size() || _strings[id] == nullptr) {
    return false;
  }
  text = *_strings[id];
  return true;
}

void StringCache::Clear() {
  _strings.clear();
  _ids.clear();
}

std::string StringCache::Description() const {
  std::string out = "Text-cache: size=" + std::to_string(_ids.size()) + '\n';
  out += "string --> id table:\n{\n";
  for (const auto& [text, id] : _ids) {
    out.append("\tID(").append(text).append(") = ").append(std::to_string(id)) += '\n';
  }
  out += "}\nid --> string table:\n{\n";
  for (std::size_t id = 0; id < _strings.size(); ++id) {
    const std::string* const text = _strings[id];
    out.append("\tString(").append(std::to_string(id)).append(") = ");
    out.append(text == nullptr ? std::string_view("<NULL>") : *text) += '\n';
  }
  return out += "}\n";
}
