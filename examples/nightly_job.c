/* Plans a job's next run and keeps a run log of it: a month after January 31st is the last day of February. */
#define _DEFAULT_SOURCE /* mkdtemp */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>
#include <vel_infra/vel_infra.h>

static CodResult planNext(char *lastRun) {
    const CodText text = {lastRun, (CodUint32)strlen(lastRun), 0};
    char buffer[COD_DATE_ISO_SIZE];
    CodText shown = {buffer, 0, 0};
    CodDate last, next;
    CodDSInterval gap;
    CodDSIntervalStruct fields;
    COD_TRY(codDateFromIso(&text, &last));
    next = last;
    COD_TRY(codAddMonths(&next, 1, false, false, false));
    COD_TRY(codIntervalBetweenDate(next, last, &gap));
    COD_TRY(codDateToIso(next, &shown, sizeof(buffer)));
    codGetDSIntervalStruct(gap, &fields);
    printf("next run %s, in %u days\n", shown.str, fields.day);
    COD_LOG_INFO("next run %s", shown.str); /* formatted only at this level or a lower one */
    return COD_SUCCESS;
}

/* What anybody would do with an editor. */
static void showAndRemove(const char *directory) {
    char path[300];
    char line[COD_RUN_LOG_LINE_SIZE + 1];
    FILE *file;
    snprintf(path, sizeof(path), "%s/run.log", directory);
    file = fopen(path, "r");
    while (file != NULL && fgets(line, sizeof(line), file) != NULL)
        fputs(line, stdout);
    if (file != NULL) fclose(file);
    remove(path);
    rmdir(directory);
}

int main(void) {
    char directory[] = "/tmp/nightly_job.XXXXXX";
    char january[] = "2027-01-31 02:30", thirteenth[] = "2027-13-31";
    static CodTimer timer; /* a cached clock: lines take their time from it */
    if (mkdtemp(directory) == NULL || codStartTimer(&timer) != COD_SUCCESS) return 1;
    if (aniInitRunLog(directory, &timer) != COD_SUCCESS) return 1;
    codSetLogLevel(COD_LOG_LEVEL_INFO);
    if (planNext(january) != COD_SUCCESS) return 1;
    if (planNext(thirteenth) != COD_SUCCESS) COD_LOG(COD_LOG_LEVEL_ERROR, codGetErrorCode(), "%s", codGetErrorMsg());
    codResetLogCallback();
    aniCloseRunLog();
    codStopTimer(&timer);
    showAndRemove(directory);
    return 0;
}
