#ifndef QUILLMERE_CLI_STOP_SIGNALS_H_
#define QUILLMERE_CLI_STOP_SIGNALS_H_

#include <signal.h>

namespace quillmere::cli {

// Routes SIGINT and SIGTERM to a stop flag for its lifetime, then restores the old handlers and
// notice. Creating one clears the flag. `notice`, when given, is written to stderr on the first
// signal. Guards nest (the import after a repair): the innermost one's notice is the one shown.
class StopSignals {
 public:
  explicit StopSignals(const char* notice = nullptr);
  ~StopSignals();
  StopSignals(const StopSignals&) = delete;
  StopSignals& operator=(const StopSignals&) = delete;

 private:
  struct sigaction oldInt_ {};
  struct sigaction oldTerm_ {};
  const char* oldNotice_ = nullptr;
};

// True once a signal arrived since the last StopSignals was made. Safe from any thread.
bool stopRequested();

}  // namespace quillmere::cli

#endif  // QUILLMERE_CLI_STOP_SIGNALS_H_
