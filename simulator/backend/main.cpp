#include <iostream>

#include "simulator/backend/backend_command.h"

int main(int argc, char** argv) {
    return simulator::backend::RunBackendCommand(argc, argv, std::cout, std::cerr);
}
