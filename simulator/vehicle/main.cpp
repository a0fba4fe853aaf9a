#include <iostream>

#include "simulator/vehicle/vehicle_command.h"

int main(int argc, char** argv) {
    return simulator::vehicle::RunVehicleCommand(argc, argv, std::cout, std::cerr);
}
