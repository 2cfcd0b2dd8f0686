/* The library as a C program sees it: every name that it needs comes from the public headers. */

#include <errno.h>
#include <stdio.h>
#include <string.h>

#include "vdreader/vdreader.h"

static int failures;

static void check(int holds, const char* what) {
    if (!holds) {
        printf("failed: %s (last error: %s)\n", what, get_vdreader_error());
        ++failures;
    }
}
#define CHECK(condition) check((condition) != 0, #condition)

static int limits;
static int32_t onLimit(sFutLimit* limit) {
    char firm[14] = {0};
    memcpy(firm, get_sFutLimit_firmid(limit), 13);
    CHECK(strcmp(firm, "FIRM") == 0);
    CHECK(get_sFutLimit_cbplimit(limit) == 0.0);
    CHECK(get_sFutLimit_risk_level(limit) == 0);
    return ++limits < 2 ? 1 : 2;
}

static int32_t onSecurity(sClassParUnitedDesc* classDesc, sSecurityDesc* security) {
    (void)classDesc;
    (void)security;
    return 1;
}

static int32_t onClass(sClassParUnitedDesc* classDesc) {
    (void)classDesc;
    return 1;
}

static void writeLimits(void) {
    char record[216] = {0};
    FILE* file = fopen("flimit.vd", "wb");
    int i;
    CHECK(file != NULL);
    if (file == NULL)
        return;
    memcpy(record + 8, "FIRM", 4);
    for (i = 0; i < 3; ++i)
        fwrite(record, sizeof record, 1, file);
    fclose(file);
}

int main(void) {
    CHECK(strcmp(get_vdreader_error(), "Unknown error") == 0);
    CHECK(for_each_class(onClass) == 0);
    CHECK(strcmp(get_vdreader_error(), "classes storage is not initialized") == 0);
    CHECK(for_each_security(0) == 0);
    CHECK(strcmp(get_vdreader_error(), "Invalid argument: for_each_security") == 0);
    CHECK(for_each_security_in_class("A", onSecurity) == 0);
    CHECK(init_vdreader_classes_file("") == 0);
    CHECK(strcmp(get_vdreader_error(), "provided classes file name is empty") == 0);
    CHECK(get_sSecurityDesc_face_value(NULL) == 0.0);
    CHECK(get_sParDesc_enum(NULL, 1) == NULL);
    CHECK(strcmp(get_vdreader_error(), "Invalid argument: get_sParDesc_enum") == 0);

    writeLimits();
    CHECK(for_each_futlimit(onLimit) == 1);
    CHECK(limits == 2);

    errno = ENOENT;
    place("file.c", 7);
    CHECK(errno == ENOENT);
    remove("flimit.vd");
    if (failures == 0)
        printf("the C interface works\n");
    return failures != 0;
}
