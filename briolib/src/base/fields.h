// Reads a line field by field. A missing or blank field has no value and leaves what is stored as it was:
//
//   FieldReader fields(payload);  // 2,1A2B,,7
//   fields.next();                // not examined
//   store(fields.hex_word(), &record->lac);
//   store(fields.hex_word(), &record->rac);
//
// Where values are also logged or stored apart, a parser's result holds them as optionals.
#pragma once

#include <stdint.h>

#include <optional>

namespace brio {

// The decimal number at the start of a field; none for a null or blank one.
std::optional<int32_t> number_of(const char* field);

// A number's low bits; none for none.
template <typename T, typename N>
std::optional<T> low_bits(std::optional<N> number) {
  if (!number) return std::nullopt;
  return static_cast<T>(*number);
}

// A missing value leaves the field as it was.
template <typename T>
void store(std::optional<T> value, T* field) {
  if (value) *field = *value;
}

// Cuts up `text` in place. Each call takes one field.
class FieldReader {
 public:
  explicit FieldReader(char* text) : rest_(text) {}

  // The field as it is, perhaps empty; null after the last one.
  char* next(char separator = ',');
  // What was not taken yet; null after the last field.
  char* rest() const { return rest_; }

  // The field's value; none for a missing or blank field. Numbers that do not fit keep their low bits.
  const char* text();  // with its blanks; null for none
  std::optional<int32_t> number();
  std::optional<uint8_t> byte() { return low_bits<uint8_t>(number()); }
  std::optional<uint16_t> word() { return low_bits<uint16_t>(number()); }
  std::optional<uint32_t> hex();
  std::optional<uint16_t> hex_word() { return low_bits<uint16_t>(hex()); }

 private:
  char* rest_;
};

}  // namespace brio
