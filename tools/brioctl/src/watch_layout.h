// How brioctl watch looks on a screen of any size.
#ifndef BRIOCTL_WATCH_LAYOUT_H
#define BRIOCTL_WATCH_LAYOUT_H

#include <cstdint>
#include <string>
#include <vector>

#include "watch_model.h"

namespace brioctl::watch {

struct Row {
  enum Style { kPlain, kTitle, kAlarm };
  std::string text;  // as wide as the screen
  Style style = kPlain;
};
// `height` rows of `width` columns. `ascii`: nothing else.
std::vector<Row> layout(const Model& model, int width, int height, std::int64_t now_ms, std::int64_t wall_ms,
                        bool ascii);

}  // namespace brioctl::watch

#endif
