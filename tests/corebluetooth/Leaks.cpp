// What LeakSanitizer is not to report: the tables of gcc's Objective-C runtime, and what GNUstep's
// Foundation keeps for the life of the process. Objects of the system that the library would keep
// are counted by tests.
extern "C" {
// NOLINTNEXTLINE(bugprone-reserved-identifier,readability-identifier-naming): the runtime's name.
__attribute__((visibility("default"))) const char* __lsan_default_suppressions();
// NOLINTNEXTLINE(bugprone-reserved-identifier,readability-identifier-naming): the runtime's name.
const char* __lsan_default_suppressions() {
  return "leak:objc_malloc\n"
         "leak:class_copyMethodList\n"
         "leak:libgnustep-base.so\n";
}
}
