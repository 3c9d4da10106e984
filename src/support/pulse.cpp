#include "support/pulse.h"

namespace {

thread_local Pulse* t_pulse = nullptr;

}  // namespace

void Pulse::Bind() { t_pulse = this; }

void Pulse::Beat() {
  if (t_pulse != nullptr) t_pulse->Touch();
}
