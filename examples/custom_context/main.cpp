// Attributes that hold as long as a scope, for all that happens within it, and names that
// mean attributes of the request.
#include "tarn/ActivityScope.h"
#include "tarn/TarnSettings.h"
#include "tarn/TracingSession.h"

int main() {
    const tarn::TracingSession session;
    tarn::TarnSettings::GetInstance().AddEventAttributeMapping(u"login", u"user");

    const tarn::ActivityScope request("serve");
    {
        Metrics::NameValueList context = {{"tenant", "north"}, {"login", "ada"}};
        tarn::ActivityScope import("import", tarn::CustomContext(std::move(context)));

        // Sees the tenant; the login has become the user of the request.
        const tarn::ActivityScope inner("parse");
    }
    // The tenant is gone again, the user stays with the request.
    const tarn::ActivityScope after("report");
}
