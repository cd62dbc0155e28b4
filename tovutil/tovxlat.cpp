// Look-ups in tables of numbers and texts.
#include <tovutil/tovxlat.h>

#include <tovutil/tovtrcfn.h>

#include <cstdio>

TOV_TRACE_FILE("tovutil/tovxlat");

const std::int32_t *TovXlatEntry::lookupValue(const TovString &text) const {
    for (const TovXlatEntry *row = this; row->m_text; ++row)
        if (text == row->m_text)
            return &row->m_value;
    return nullptr;
}

std::int32_t TovXlatEntry::getValue(const TovString &text, std::int32_t defaultValue) const {
    const std::int32_t *value = lookupValue(text);
    return value ? *value : defaultValue;
}

const char *TovXlatEntry::getText(std::int32_t value, const char *defaultText) const {
    for (const TovXlatEntry *row = this; row->m_text; ++row)
        if (row->m_value == value)
            return row->m_text;
    return defaultText;
}

TovString TovXlatEntry::print(std::int32_t value) const {
    if (const char *text = getText(value, nullptr))
        return text;
    char number[16];
    std::snprintf(number, sizeof number, "#%i", value);
    return number;
}
