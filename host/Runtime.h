#pragma once

#include <string>

namespace host {

/**
 * The directory that stands for the phone whose services the programs of this user find: the
 * variable NIVORA_FBO_PHONE names it; without it, each user has one of their own. It holds the
 * socket of the service ("service") and what the service logs ("log").
 */
std::string phoneDirectory();

/**
 * Has registerAsService() offer the service of this process to other processes, at a unix socket
 * that is bound but does not listen yet; otherwise it offers it within this process.
 */
void offerServiceAt(int socket);

}  // namespace host
