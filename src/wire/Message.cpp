#include "wire/Message.hpp"

#include "wire/AssignableFields.hpp"

namespace lcfd {

void Message::reset() {
    for (std::string* field : {&mac, &seqid, &unusedField1, &unusedField2}) {
        field->clear();
    }
    for (const AssignableField& assignable : kAssignableFields) {
        (this->*assignable.field).clear();
    }
}

}  // namespace lcfd
