// Prints the generated part of docs/client-machine.md; tools/client-diagram puts it there.

#include <iostream>

#include "client/client_diagram.h"

int main() {
    std::cout << client_table::Diagram();
}
