#include "cli/server_arguments.h"

#include <string>

#include "cli/command.h"

const char* const server_environment_help =
    "NATS_CREDS, NATS_CA, NATS_CERT and NATS_KEY in the environment say what --credentials, --tls-ca,\n"
    "--tls-cert and --tls-key leave out.";

namespace {

void add_file(CLI::App* command, const std::string& name, std::string& file, const std::string& help) {
    command->add_option(name, file, help)->type_name("FILE")->check(not_empty("the name of the file"));
}

}  // namespace

void add_server_options(CLI::App* command, nats::server_t& server) {
    add_file(command, "--credentials", server.credentials, "the user's credentials, as NATS has them (.creds)");
    add_file(command, "--tls-ca", server.ca, "the certificates of those who vouch for the server");
    add_file(command, "--tls-cert", server.certificate, "the certificate that says who this is");
    add_file(command, "--tls-key", server.key, "the key of that certificate");
}
