#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdio>
#include <iostream>

#include "midtablectl/control.h"

namespace {

int TerminalWidth() {
  winsize size{};
  return ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col >= 40 ? size.ws_col : 80;
}

}  // namespace

int main(int argc, char** argv) {
  // The service's code prints console lines, some with the password, through stdio: those go
  // nowhere, while std::cout keeps the descriptor.
  std::ios::sync_with_stdio(false);
  if (std::FILE* nowhere = std::fopen("/dev/null", "w")) stdout = nowhere;
  const bool terminal = isatty(STDOUT_FILENO) != 0;
  ctl::Console console{
      std::cout,      std::cerr, std::cin, terminal, terminal && isatty(STDIN_FILENO) != 0,
      TerminalWidth()};
  const ctl::Status status = ctl::Control(argc, argv, console);
  std::cout.flush();
  return std::cout ? static_cast<int>(status) : static_cast<int>(ctl::Status::kCouldNotLook);
}
