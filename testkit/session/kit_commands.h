#ifndef TESTKIT_SESSION_KIT_COMMANDS_H
#define TESTKIT_SESSION_KIT_COMMANDS_H

namespace lab {

void add_kit_commands();  // to those of briolab

}  // namespace lab

#endif
