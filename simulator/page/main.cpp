#include <iostream>

#include "simulator/page/page_command.h"

int main(int argc, char** argv) {
    return simulator::page::RunPageCommand(argc, argv, std::cout, std::cerr);
}
