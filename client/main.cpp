#include "client/program.h"

int main(int argc, char* argv[]) {
    return vintrel::RunProgram(argc, argv);
}
