// Lines from the standard input: at a terminal edited, completed and taken from a history (where the program
// was built with libedit), else as a pipe brings them.
#ifndef TOOLS_LINE_EDITOR_H
#define TOOLS_LINE_EDITOR_H

#include <string>
#include <vector>

// One at a time: the library below has one state.
class LineEditor {
 public:
  LineEditor();
  ~LineEditor();
  LineEditor(const LineEditor&) = delete;
  LineEditor& operator=(const LineEditor&) = delete;

  bool terminal() const { return terminal_; }
  void remember(const std::string& line);                // in the history
  void complete(const std::vector<std::string>& words);  // any case

  // Waits for a line; false at the end of the input and when a signal came.
  bool take(const std::string& prompt, std::string* line);

  // For a caller who waits for other things, too: begin() shows the prompt; then feed() whenever ready() or
  // the standard input is readable, until it brings a line or the end, or stop().
  enum class Got { kNothing, kLine, kEnd };
  void begin(const std::string& prompt);
  bool begun() const { return begun_; }
  bool ready() const;  // a line is there without waiting
  Got feed(std::string* line);
  void stop();                                // drops what was typed
  void print_above(const std::string& text);  // a line above the one that is typed

 private:
  bool terminal_, edits_ = false, begun_ = false, ended_ = false;
  std::string waiting_;  // read and not taken
};

#endif
