// In a coverage build a process that ends by _exit writes what it counted, by calls that do not fail any
// more.
#ifdef BRIO_COVERAGE
namespace faults {
__attribute__((weak)) void stop();  // tests/faults, where that is linked
}

extern "C" {
void __gcov_dump();
[[noreturn]] void __real__exit(int status);
[[noreturn]] void __wrap__exit(int status) {
  if (faults::stop != nullptr) faults::stop();
  __gcov_dump();
  __real__exit(status);
}
}
#endif
