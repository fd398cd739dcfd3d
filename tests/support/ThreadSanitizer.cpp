// What ThreadSanitizer is not to report, in every program of a build with it: what happens inside
// libraries that were built without it, so that it sees half of what they do.
//
// libsystemd keeps the key of its newest hash table in a variable of the whole process and makes a
// new one, without a lock, whenever a table of any connection grows. Each table copies the key when
// it is made, so two connections on two threads do each other no harm.
//
// sdbus-c++ makes one object for the whole process when it is first asked for. The compiler guards
// that, with an instruction that is not seen from outside.
//
// libmosquitto unlocks a mutex of a connection that it does not hold when a broker ends it, and the
// mutex stays usable. One thread only uses a connection of ours, so nobody else can hold it then.
extern "C" {
// NOLINTNEXTLINE(bugprone-reserved-identifier,readability-identifier-naming): the runtime's name.
__attribute__((visibility("default"))) const char* __tsan_default_suppressions();
// NOLINTNEXTLINE(bugprone-reserved-identifier,readability-identifier-naming): the runtime's name.
const char* __tsan_default_suppressions() {
  return "called_from_lib:libsystemd.so.0\n"
         "called_from_lib:libsdbus-c++.so.1\n"
         "called_from_lib:libsdbus-c++.so.2\n"
         "mutex:libmosquitto.so.1\n";
}
}
