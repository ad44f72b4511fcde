// Random inputs that are the same in every run.
#ifndef TESTS_SUPPORT_RANDOM_H
#define TESTS_SUPPORT_RANDOM_H

#include <initializer_list>
#include <random>
#include <string>

class Random {
 public:
  explicit Random(unsigned seed) : engine_(seed) {}
  unsigned below(unsigned limit) { return static_cast<unsigned>(engine_()) % limit; }
  bool chance(unsigned percent) { return below(100) < percent; }
  template <typename T>
  T one_of(std::initializer_list<T> all) {
    return *(all.begin() + below(static_cast<unsigned>(all.size())));
  }
  std::string digits(size_t count) {
    std::string text;
    while (text.size() < count) text += static_cast<char>('0' + below(10));
    return text;
  }

 private:
  std::mt19937 engine_;
};

#endif
