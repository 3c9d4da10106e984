// What is to be done every now and then, whatever the service is busy with: the run log is written
// out, and files that somebody removed are put back. main says what; the threads of the service do
// it when they come by.
#pragma once

#include <functional>

// Has the work done from its construction to its end. One at a time.
class Housekeeping {
 public:
  explicit Housekeeping(std::function<void()> work);
  ~Housekeeping();
  Housekeeping(const Housekeeping&) = delete;
  Housekeeping& operator=(const Housekeeping&) = delete;
};

// Does that work now, and nothing where there is none. The work takes microseconds while all is
// well. Any thread may call it, at best once a second; the work is never done by two at a time.
void KeepHouse();
