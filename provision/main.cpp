#include <iostream>

#include "provision/provision_command.h"

int main(int argc, char** argv) {
    return provision::RunProvisionCommand(argc, argv, std::cout, std::cerr);
}
