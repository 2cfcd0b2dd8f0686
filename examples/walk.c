/*
 * Reads the data files that an ini file names, from plain C.
 *
 *   walk_c FILE.ini [SECTION]
 *   walk_c FOLDER              takes vdreader.ini of the folder
 */
#include <inttypes.h>
#include <stdio.h>
#include <string.h>

#include "vdreader/vdreader.h"

/* Callbacks get no argument of ours, so what they need between calls stands here. */
static int g_securitiesShown;
static double g_limitsTotal;

/* Text fields are read with a precision: a damaged file may lack the terminator. */
#define CODE "%.12s"

static int32_t onClass(sClassParUnitedDesc* classDesc) {
    int count = 0;
    printf("class " CODE ":", get_sClassParUnitedDesc_class_code(classDesc));

    /* The class itself keeps the position of this walk. */
    const sParDesc* param = get_sClassParUnitedDesc_par_desc(classDesc);
    for (; param; param = get_sParDesc_next(classDesc)) {
        if (count++ < 3)
            printf(" %.16s", get_sParDesc_db_name(param));
    }
    printf(" (%d parameters)\n", count);
    return 1; /* go on */
}

static int32_t onSecurity(sClassParUnitedDesc* classDesc, sSecurityDesc* security) {
    const char* name = get_sSecurityDesc_short_name(security, 0); /* null: no such language */
    printf("security " CODE "/" CODE ": %s, lot %" PRIu32 "\n",
           get_sClassParUnitedDesc_class_code(classDesc), get_sSecurityDesc_sec_code(security),
           name ? name : "(no name)", get_sSecurityDesc_lot_size(security));
    return ++g_securitiesShown < 5 ? 1 : 2; /* 2: enough */
}

static int32_t onLimit(sFutLimit* limit) {
    /* The record is valid only until this function returns. */
    g_limitsTotal += get_sFutLimit_cbplimit(limit);
    return 1;
}

static int fail(const char* step) {
    fprintf(stderr, "%s: %s\n", step, get_vdreader_error());
    return 1;
}

int main(int argc, char** argv) {
    char ini[1024];
    const char* source = argc > 1 ? argv[1] : "";
    const char* section = argc > 2 ? argv[2] : "vdreader";
    const size_t length = strlen(source);
    const int isIni = length > 4 && strcmp(source + length - 4, ".ini") == 0;
    if (length == 0 || length > sizeof ini - sizeof "/vdreader.ini") {
        fprintf(stderr, "usage: walk_c FILE.ini [SECTION] | FOLDER\n");
        return 2;
    }
    snprintf(ini, sizeof ini, "%s%s", source, isIni ? "" : "/vdreader.ini");

    /* The classes come first: they hold the securities and the parameters. */
    if (!init_vdreader_classes(ini, section))
        return fail("classes");
    if (!for_each_class(onClass))
        return fail("walk of the classes");

    /* A walk that our own callback stopped returns 0 here and sets no error. */
    if (!for_each_security(onSecurity) && g_securitiesShown < 5)
        return fail("walk of the securities");

    if (!init_vdreader_futlimits(ini, section) || !for_each_futlimit(onLimit))
        return fail("futures limits");
    printf("futures limits: %.2f in all\n", g_limitsTotal);
    return 0;
}
