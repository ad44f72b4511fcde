// Plays inputs without an engine: those of a file, between lines of "----".
#include <fstream>
#include <iostream>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, size_t size);

int main(int argc, char** argv) {
  for (int i = 1; i < argc; i++) {
    std::ifstream file(argv[i]);
    std::string input;
    size_t count = 0;
    for (std::string line; file; input += line + '\n') {
      if (std::getline(file, line) && line != "----") continue;
      LLVMFuzzerTestOneInput(reinterpret_cast<const unsigned char*>(input.data()), input.size());
      count++;
      input.clear();
    }
  }
}
