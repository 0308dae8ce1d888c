// Where rules name services of the registry.
#pragma once

#include <json/value.h>

#include <string>
#include <vector>

namespace nm {

/// Whether two names are those of one service.
bool is_same_service(const std::string& a, const std::string& b);

/// A member of a rule that names a service: the document without ".json", the JSON pointer of the member, the
/// name.
struct ServiceReference {
    std::string document;
    std::string pointer;
    std::string service;
};

/// All references of the stored firewall and policy documents. A document that cannot be read has none.
std::vector<ServiceReference> stored_service_references();

}  // namespace nm
