#pragma once

// Messages between spectralsim and its children, over a socket of the kind SOCK_SEQPACKET.

#include <sys/types.h>

#include <string>

namespace spectralsim {

// Throws std::runtime_error with this text and the meaning of errno.
[[noreturn]] void fail(const std::string& what);

// Sends a byte, further bytes, and a descriptor where it is not -1.
void send_message(int socket, char byte, const std::string& text = "", int descriptor = -1);

struct Message {
  std::string text;     // empty when every sender has ended
  int descriptor = -1;  // the receiver's own, close-on-exec
  pid_t sender = -1;    // as this process knows it, where the socket has SO_PASSCRED
};

// Waits for a message. Both functions throw std::runtime_error if the socket fails.
Message receive_message(int socket);

}  // namespace spectralsim
