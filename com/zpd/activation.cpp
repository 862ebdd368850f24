#include "com/zpd/activation.h"

#include <vector>

#include "com/miscio/mkdir.h"
#include "com/miscio/text.h"
#include "com/qmlog/api2.h"
#include "com/zpd/zpd_ioctl.h"

namespace {

bool is_installed(const std::string& app) {
    return is_directory(widen("\\Applications\\Install\\" + app));
}

}  // namespace

activation_state_t::activation_state_t(reg_t& settings)
    : activated(settings.add_uint32(ZPD_SETTING_ACTIVATED, 0, 1, 0)),
      applications(settings.add_string("applications", "")) {
    active = activated->value();
    QM_DEBUG("active=%d", active);
    read_apps();
}

void activation_state_t::set_status(bool on) {
    active = on ? 1 : 0;
    (void)activated->set(active);  // 0 and 1 are within its interval
}

void activation_state_t::read_apps() {
    apps.clear();
    const std::string list = applications->value() + ";";
    for (size_t begin = 0, end; (end = list.find(';', begin)) != std::string::npos; begin = end + 1) {
        if (end > begin) {
            apps[list.substr(begin, end - begin)] = true;
        }
    }
    QM_DEBUG("list='%s'", list.c_str());
    for (const auto& [name, present] : apps) {
        QM_DEBUG("application: '%s'", name.c_str());
    }
}

std::string activation_state_t::list_apps() const {
    std::string list;
    for (const auto& [name, present] : apps) {
        list += (list.empty() ? "" : ";") + name;
    }
    QM_DEBUG("applications: '%s'", list.c_str());
    return list;
}

std::string activation_state_t::store_apps() {
    std::string list = list_apps();
    applications->set(list);
    return list;
}

std::string activation_state_t::register_app(const std::string& name) {
    apps[name] = true;
    return store_apps();
}

void activation_state_t::unregister_all() {
    apps.clear();
    store_apps();
}

bool activation_state_t::is_active() {
    if (active == 0) {
        return false;
    }
    if (apps.empty()) {
        return true;
    }
    std::vector<std::string> missing;
    bool one_is_installed = false;
    for (const auto& [name, present] : apps) {
        one_is_installed = is_installed(name);
        if (one_is_installed) {
            break;
        }
        missing.push_back(name);
    }
    for (const std::string& name : missing) {
        apps.erase(name);
    }
    if (!one_is_installed) {
        set_status(false);
    }
    store_apps();
    return active != 0;
}
