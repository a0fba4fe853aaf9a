#include <iostream>

#include "simulator/pki/pki_command.h"

int main(int argc, char** argv) {
    return simulator::pki::RunPkiCommand(argc, argv, std::cout, std::cerr);
}
