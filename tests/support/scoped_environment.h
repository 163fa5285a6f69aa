#ifndef QUILLMERE_TESTS_SUPPORT_SCOPED_ENVIRONMENT_H_
#define QUILLMERE_TESTS_SUPPORT_SCOPED_ENVIRONMENT_H_

#include <stdlib.h>

#include <optional>
#include <string>

namespace quillmere {

// Sets (or, with null, clears) one environment variable for a scope and restores it after.
class ScopedEnvironment {
 public:
  ScopedEnvironment(const char* name, const char* value) : name_(name) {
    if (const char* old = getenv(name)) old_ = old;
    apply(value);
  }
  ~ScopedEnvironment() { apply(old_ ? old_->c_str() : nullptr); }
  ScopedEnvironment(const ScopedEnvironment&) = delete;
  ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;

 private:
  void apply(const char* value) {
    if (value) {
      setenv(name_.c_str(), value, 1);
    } else {
      unsetenv(name_.c_str());
    }
  }

  std::string name_;
  std::optional<std::string> old_;
};

}  // namespace quillmere

#endif  // QUILLMERE_TESTS_SUPPORT_SCOPED_ENVIRONMENT_H_
