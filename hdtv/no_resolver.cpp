// For an executable without shared libraries. The event library can look names up, which nobody here asks
// of it: with these in their place, the C library's resolver is left out.

#include <netdb.h>

extern "C" {

int getaddrinfo(const char * /*node*/, const char * /*service*/, const addrinfo * /*hints*/,
                addrinfo ** /*result*/) {
    return EAI_FAIL;
}

void freeaddrinfo(addrinfo * /*result*/) {}

const char *gai_strerror(int /*code*/) {
    return "no resolver";
}

servent *getservbyname(const char * /*name*/, const char * /*protocol*/) {
    return nullptr;
}

protoent *getprotobynumber(int /*number*/) {
    return nullptr;
}
}
