#ifndef QUILLMERE_CORE_DATES_TIME_ZONE_H_
#define QUILLMERE_CORE_DATES_TIME_ZONE_H_

#include <optional>
#include <string_view>

namespace date {
class time_zone;
}

namespace quillmere {

// A zone of the system's time-zone database (tzdata), such as Europe/Paris or Etc/GMT+3.
// A plain value: copies refer to the same database entry, which lives for the whole run.
// Keeps the date library out of this header, so callers need none of its build settings.
class TimeZone {
 public:
  // The zone with that IANA identifier; absent when the database does not know it (or
  // cannot be read at all).
  static std::optional<TimeZone> named(std::string_view identifier);

  // The zone the machine's clock shows: the zone TZ names when it names one (a leading ":"
  // and a zoneinfo path are accepted; an empty TZ means UTC, as in POSIX), else the system's
  // zone (/etc/localtime). Absent only when neither can be read. Asked anew on each call, so
  // a changed TZ takes effect at once.
  static std::optional<TimeZone> current();

  // The zone's identifier as the database spells it.
  std::string_view identifier() const;

  // Offset east of UTC, in whole seconds, in force at `instant` (seconds since 1970-01-01
  // UTC), daylight-saving time included. Fractions of a second are floored; NaN is read as
  // 1970 and infinities as the farthest representable past or future.
  int offsetSeconds(double instant) const;

  bool operator==(const TimeZone&) const = default;

 private:
  explicit TimeZone(const date::time_zone* zone) : zone_(zone) {}

  const date::time_zone* zone_;
};

}  // namespace quillmere

#endif  // QUILLMERE_CORE_DATES_TIME_ZONE_H_
