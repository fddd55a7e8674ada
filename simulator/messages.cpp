#include "simulator/messages.h"

#include <sys/socket.h>
#include <sys/uio.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

namespace spectralsim {

void fail(const std::string& what) { throw std::runtime_error(what + ": " + std::strerror(errno)); }

void send_message(int socket, char byte, const std::string& text, int descriptor) {
  std::string bytes = byte + text;
  iovec part = {bytes.data(), bytes.size()};
  alignas(cmsghdr) char control[CMSG_SPACE(sizeof descriptor)] = {};
  msghdr message = {};
  message.msg_iov = &part;
  message.msg_iovlen = 1;
  if (descriptor >= 0) {
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    cmsghdr* const header = CMSG_FIRSTHDR(&message);
    header->cmsg_level = SOL_SOCKET;
    header->cmsg_type = SCM_RIGHTS;
    header->cmsg_len = CMSG_LEN(sizeof descriptor);
    std::memcpy(CMSG_DATA(header), &descriptor, sizeof descriptor);
  }
  if (sendmsg(socket, &message, MSG_NOSIGNAL) < 0) fail("sendmsg");
}

Message receive_message(int socket) {
  char text[1024] = {};
  iovec part = {text, sizeof text};
  alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int)) + CMSG_SPACE(sizeof(ucred))] = {};
  msghdr header = {};
  header.msg_iov = &part;
  header.msg_iovlen = 1;
  header.msg_control = control;
  header.msg_controllen = sizeof control;
  ssize_t count = -1;
  do {
    count = recvmsg(socket, &header, MSG_CMSG_CLOEXEC);
  } while (count < 0 && errno == EINTR);
  if (count < 0) fail("recvmsg");
  Message message;
  message.text.assign(text, static_cast<std::size_t>(count));
  for (cmsghdr* each = CMSG_FIRSTHDR(&header); each != nullptr; each = CMSG_NXTHDR(&header, each)) {
    if (each->cmsg_type == SCM_RIGHTS) {
      std::memcpy(&message.descriptor, CMSG_DATA(each), sizeof message.descriptor);
    } else if (each->cmsg_type == SCM_CREDENTIALS) {
      ucred credentials = {};
      std::memcpy(&credentials, CMSG_DATA(each), sizeof credentials);
      message.sender = credentials.pid;
    }
  }
  return message;
}

}  // namespace spectralsim
