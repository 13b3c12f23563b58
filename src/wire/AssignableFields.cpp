#include "wire/AssignableFields.hpp"

namespace lcfd {

const std::array<AssignableField, kAssignableFieldCount>& assignableFields() {
    return kAssignableFields;
}

const AssignableField* findAssignableField(std::string_view key) {
    for (const AssignableField& field : kAssignableFields) {
        if (key == field.key) {
            return &field;
        }
    }
    return nullptr;
}

}  // namespace lcfd
