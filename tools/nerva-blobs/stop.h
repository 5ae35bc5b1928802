#pragma once

// A clean stop on SIGINT or SIGTERM: the first signal only raises a flag that
// the main loop and the reader poll (so the run finishes its outputs and its
// summary, status 0); a second one ends the process at once.
namespace nerva_blobs {

void install_stop_handlers();
bool stop_requested();

}  // namespace nerva_blobs
