/* Traced in C. */
#include "work.h"

#include "tarn/tarn.h"

static void Parse(const char* text) {
    tarn_scope scope;
    tarn_scope_open(
        &scope, "parse", TARN_TO_NUL, NULL, TARN_LIST(tarn_natural("length", strlen(text))));
    if (text[0] == '\0') {
        tarn_fail(&scope.work, "nothing to parse", TARN_TO_NUL, NULL, 0);
    }
    tarn_scope_close(&scope);
}

void Work(void) {
    tarn_scope scope;
    tarn_scope_open(&scope,
                    "load",
                    TARN_TO_NUL,
                    NULL,
                    TARN_LIST(tarn_text("path", "/etc/hosts"), tarn_boolean("cached", 0)));
    Parse("127.0.0.1");
    Parse("");

    tarn_work* download = tarn_activity_begin("download", TARN_TO_NUL, NULL, NULL, 0);
    tarn_work* upload = tarn_activity_begin("upload", TARN_TO_NUL, NULL, NULL, 0);
    tarn_activity_release(download);
    tarn_add(upload, TARN_LIST(tarn_real("ratio", 0.5)));
    tarn_activity_release(upload);

    tarn_scope_close(&scope);
}
