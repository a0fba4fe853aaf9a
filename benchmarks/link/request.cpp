// Makes a request to the backend inside a unit, with the unit's own store, and writes its bytes to
// the standard output.

#include <exception>
#include <iostream>
#include <stdexcept>
#include <string>

#include "certificates/hsm.h"
#include "client/certificate_messages.h"
#include "client/tive_generator_if.h"

namespace {

std::string MakeRequest(const std::string& vin) {
    vintrel::protobuf::CertificateRequestParams params;
    params.diagnostic_address = "C003";
    params.hw_version = "HW";
    params.sw_version = "SW";
    params.part_number = "PART";
    const auto csr = vintrel::Hsm().GenerateCsr(vin);
    std::string container = vintrel::TiveGeneratorIf::Create()->ConstructContainer(csr);
    if (csr.empty() || container.empty()) {
        throw std::runtime_error("the store makes no request");
    }
    return vintrel::protobuf::CreateProtobuffer(params, std::move(container));
}

}  // namespace

int main(int argc, char* argv[]) {
    if (argc != 2) {
        std::cerr << "usage: bench-request VIN\n";
        return 2;
    }
    try {
        std::cout << MakeRequest(argv[1]) << std::flush;
        return std::cout ? 0 : 1;
    } catch (const std::exception& exception) {
        std::cerr << exception.what() << std::endl;
        return 1;
    }
}
