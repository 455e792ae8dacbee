/* Adds amounts exactly: three times 0.1 is 0.3. What is no number is refused, and the sum stays as it is. */
#include <stdio.h>
#include <vel_infra/vel_infra.h>

static CodResult addText(CodNumberSum *sum, const char *amount) {
    CodNumber n;
    COD_TRY(codNumberFromStr(amount, &n));
    return codNumberSumAdd(sum, &n);
}

static CodResult printSum(const CodNumberSum *sum) {
    CodNumber total, mean;
    char totalText[COD_NUMBER_TEXT_SIZE], meanText[COD_NUMBER_TEXT_SIZE];
    COD_TRY(codNumberSumResult(sum, &total));
    COD_TRY(codNumberSumAverage(sum, &mean));
    COD_TRY(codNumberRound(&mean, COD_NUMBER_DIGITS, 4));
    COD_TRY(codNumber2Str(&total, totalText, sizeof(totalText)));
    COD_TRY(codNumber2Str(&mean, meanText, sizeof(meanText)));
    printf("%s, on average %s\n", totalText, meanText);
    return COD_SUCCESS;
}

int main(void) {
    static const char *const amounts[] = {"0.1", "0.1", "0.1", "19.99", "-4.50"};
    CodNumberSum sum;
    codNumberSumInit(&sum);
    for (size_t i = 0; i < sizeof(amounts) / sizeof(amounts[0]); i++) {
        if (addText(&sum, amounts[i]) != COD_SUCCESS) return 1;
    }
    if (printSum(&sum) != COD_SUCCESS) return 1;
    if (addText(&sum, "12 apples") != COD_SUCCESS) puts(codGetErrorMsg2());
    return 0;
}
