#include "certificates/client_cert_initializer_api.h"

#include "certificates/client_cert_initializer_api_impl.h"

namespace orv::tee {

std::shared_ptr<ClientCertInitializerAPI> ClientCertInitializerAPI::get_instance() {
    return impl::ClientCertInitializerAPIImpl::get_instance();
}

}  // namespace orv::tee
