#pragma once

// A device without any properties.
inline int __system_property_get(const char* /*name*/, char* value) {
    *value = '\0';
    return 0;
}
