#ifndef VEL_INFRA_STRING_ANI_NUMBER_FORM_H
#define VEL_INFRA_STRING_ANI_NUMBER_FORM_H

/* Forms of numbers: what TO_CHAR and TO_NUMBER take beside a value. Texts and forms are ASCII; collations do the same in every charset.
 *
 *   9      a digit; before the number's first one a blank
 *   0      a digit; zeros are written from the first 0 on, and behind the point up to the last digit of the form
 *   . D    the decimal point, at most one
 *   , G    a comma, directly between two digits before the point; a blank where no digit is written before it. Not beside EEEE
 *   $      a dollar sign before the first digit; first of all, or behind FM or S
 *   S      the sign, + or -; first (behind FM) or last. Written at the first digit or at the end
 *   MI     last: a minus sign behind negative numbers, else a blank
 *   PR     last: negative numbers in angle brackets, others between blanks
 *   FM     first of all: no blanks, and no zeros at the end of the fraction that 9 would write; the point stays
 *   EEEE   behind the digits: d.dddE+xx, one digit before the point however many the form has there
 *
 * Letters may be small. A form has at least one 9 or 0, at most 63 in all, and one of S, MI and PR at most. Without any of these a minus
 * sign stands before the first digit of negative numbers, and has its own column. It stands before a dollar sign, as S and < do; the point
 * is a first digit where nothing is written before it.
 *
 * 1. Values are rounded once, half away from zero, to the digits behind the point. What has more integer digits than the form becomes "#"
 *    in every column of the form, the sign's too, with FM as without. A value that rounds to zero has no minus sign, but S writes its plus.
 *    A single zero before the point is written where the form has a 0 there, or where no digit would be written at all.
 * 2. Reading takes what writing gives, and less: blanks (space, tab) around, commas only where the form has a G or comma, counted from the
 *    point, a dollar sign only where it has one, fewer digits than the form; a sign + or - before the number when the form has none of S,
 *    MI and PR. All but the digits may be missing. More digits on either side of the point than the form has are refused, and more than
 *    five of an exponent. The scale stays as written, and more than 38 significant digits round half up.
 * 3. Any thread; pure functions. */

#include <vel_infra/number/ani_number.h>

COD_BEGIN_DECLS

/* Room for every text that codNumberFormat writes. */
#define COD_NUMBER_FORM_TEXT_SIZE 160

/* Writes a value by a form into text->str, a buffer of bufSize bytes, without a terminator, and sets text->len.
 * Errors: ERR_CMM_DATA_FORMAT_ERROR for a text that is no form; ERR_CMM_FORMAT_STR_OVERFLOW when the result exceeds bufSize, and nothing
 * is written; ERR_CMM_POINTER_NULL. */
COD_NODISCARD COD_API CodResult codNumberFormat(const CodNumber *value, const CodText *form, CodText *text, CodUint32 bufSize);
/* Reads a text by a form. Errors: ERR_CMM_DATA_FORMAT_ERROR; ERR_CMM_INVALID_NUMBER for a text that the form does not write;
 * ERR_CMM_NUMERIC_OVERFLOW; ERR_CMM_POINTER_NULL. */
COD_NODISCARD COD_API CodResult codNumberParse(const CodText *text, const CodText *form, CodNumber *value);

COD_END_DECLS

#endif
