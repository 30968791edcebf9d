#ifndef NIVUR_PARAMETER_H
#define NIVUR_PARAMETER_H

#include <cstddef>
#include <map>
#include <memory>
#include <string>

#include "export.h"
#include "no_copyable.h"

namespace NIVUR {

/// Base of the values of a Parameter, which deletes them through this class.
class NIVUR_EXPORT ParameterValue {
  public:
    virtual ~ParameterValue() = default;
};

/// Values under string keys, which it owns and deletes when they are replaced or removed and when
/// it ends itself. The destructor of a value that is removed, or destroyed with the Parameter, may
/// use the Parameter, which no longer has that value. Not thread-safe: threads that share one need
/// a lock of their own. Callers derive what they keep from ParameterValue, as in
///
///     struct Size : ParameterValue { int width, height; };
///     parameter.set("size", new Size(...));
///     const auto* size = dynamic_cast<const Size*>(parameter.get("size"));
class NIVUR_EXPORT Parameter : public NoCopyable {
  public:
    Parameter();
    ~Parameter();

    /// Takes over `value` and deletes what the key held before. The value that is there already
    /// stays, and null removes the key. When memory is exhausted `value` is deleted, the old one
    /// stays and std::bad_alloc passes through.
    /// REQUIRES: nothing else owns `value`.
    void set(const std::string& key, ParameterValue* value);

    /// The key's value, lent until it is replaced or removed, or null when there is none.
    ParameterValue* get(const std::string& key) const;

    /// Deletes the key's value; false when there is none.
    bool remove(const std::string& key);

    /// How many keys there are.
    size_t size() const;

  private:
    // Ordered byte by byte.
    std::map<std::string, std::unique_ptr<ParameterValue>> _entries;
};

}  // namespace NIVUR

#endif
