#include "hdtv/startup.h"

int main(int argc, char **argv) {
    return run_service(argc, argv);
}
