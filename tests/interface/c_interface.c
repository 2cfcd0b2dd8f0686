/* The library as a C program sees it: every name that it needs comes from the public headers. */

#include <errno.h>
#include <stddef.h>
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

static int32_t onRecord(sDynParams* record) {
    return record->dataField1 >= 0;
}

static int alerts;
static int32_t onAlert(sAlertDesc* alert) {
    (void)alert;
    return ++alerts;
}

/* What the compiler of a C host makes of the two structures. */
static void checkLayouts(void) {
    CHECK(sizeof(sDynParams) == 1597);
    CHECK(offsetof(sDynParams, dataField2) == 4);
    CHECK(offsetof(sDynParams, class_code) == 8);
    CHECK(offsetof(sDynParams, sec_code) == 21);
    CHECK(offsetof(sDynParams, dataField3) == 34);
    CHECK(offsetof(sDynParams, longCount) == 38);
    CHECK(offsetof(sDynParams, doubleCount) == 39);
    CHECK(offsetof(sDynParams, maskSize) == 40);
    CHECK(offsetof(sDynParams, sec_id) == 41);
    CHECK(offsetof(sDynParams, mask) == 45);
    CHECK(offsetof(sDynParams, longs) == 61);
    CHECK(offsetof(sDynParams, doubles) == 573);
    CHECK(sizeof(sLastDynParams) == 1552);
    CHECK(offsetof(sLastDynParams, longs) == 16);
    CHECK(offsetof(sLastDynParams, doubles) == 528);
}

static void checkGuards(void) {
    sLastDynParams last;
    CHECK(init_vdreader_dyn_params("none.ini", "s") == 0);
    CHECK(strcmp(get_vdreader_error(), "classes storage is not initialized") == 0);
    CHECK(init_vdreader_dyn_params_file("none.vd") == 0);
    CHECK(init_vdreader_alerts("none.ini", "s") == 0);
    CHECK(for_each_dynamic_params(onRecord) == 0);
    CHECK(get_sSecurityDesc_last_dynamic_params(NULL, &last) == 0);
    CHECK(strcmp(get_vdreader_error(), "classes storage is not initialized") == 0);
}

/* Whether the file ends in the text. */
static int endsIn(const char* name, const char* text) {
    char bytes[64] = {0};
    const size_t length = strlen(text);
    FILE* file = fopen(name, "rb");
    if (file == NULL)
        return 0;
    fseek(file, -(long)length, SEEK_END);
    fread(bytes, 1, length, file);
    fclose(file);
    return strcmp(bytes, text) == 0;
}

static void writeText(const char* name, const char* text) {
    FILE* file = fopen(name, "wb");
    CHECK(file != NULL);
    if (file == NULL)
        return;
    fputs(text, file);
    fclose(file);
}

/* The last, since the current folder moves to that of the program, where the logs stand in a folder
 * of their own. */
static void checkLogs(void) {
    writeText("sarn.ini", "[Files]\nLogFilesFolderName=c_interface\n");
    CHECK(util_init(NULL, NULL, "UTIL", NULL) == 0);
    CHECK(strcmp(getsmark(), "UTIL") == 0);
    init_dealliblog();
    create_tree(".\\none.log");
    init_errorlog(NULL, "C", "sarn.ini");
    CHECK(strcmp(getsmark(), "C") == 0);
    init_logs("BOTH");
    CHECK(strcmp(getsmark(), "BOTH") == 0);
    vdreader_error("an error of C, %d", 1);
    CHECK(endsIn("c_interface/errors.log", "an error of C, 1\r\n"));
    CHECK(endsIn("c_interface/events.log", "an error of C, 1\r\n"));
    shutdown_logs();

    writeText("c_interface/my.ini", "[Files]\nmine=c_interface\\mine.log\n");
    init_eventlog("mine", NULL, "c_interface/my.ini");
    exc_h_print("written through");
    CHECK(endsIn("c_interface/mine.log", "written through\r\n"));
    netutil_init();
    CHECK(EnableForwardLogToConsole() == 0);
    CHECK(EnableForwardLogToConsole() == 1);
    shutdown_logs();
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

    checkLayouts();
    checkGuards();
    /* Not refused: an alert file is made in the working directory. */
    CHECK(for_each_alert(onAlert) == 1);
    CHECK(alerts == 0);
    CHECK(remove("alert.vd") == 0);

    writeLimits();
    CHECK(for_each_futlimit(onLimit) == 1);
    CHECK(limits == 2);

    errno = ENOENT;
    place("file.c", 7);
    CHECK(errno == ENOENT);
    remove("flimit.vd");
    checkLogs();
    if (failures == 0)
        printf("the C interface works\n");
    return failures != 0;
}
