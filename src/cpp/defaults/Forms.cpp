#include "cvlcoreplatform/TLogForm.h"

#include <utility>

namespace TLog {

class Form {
public:
    explicit Form(std::vector<FormField> given) : fields(std::move(given)) {}

    const std::vector<FormField> fields;
};

std::shared_ptr<const Form> MakeForm(std::vector<FormField> fields) {
    return std::make_shared<const Form>(std::move(fields));
}

Event MakeEvent(const std::shared_ptr<const Form>& form, EventHead head, const SlotValue* values) {
    return MakeEventOfValues(form->fields, std::move(head), values);
}

}  // namespace TLog
