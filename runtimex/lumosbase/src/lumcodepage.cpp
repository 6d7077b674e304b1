#include "lumosbase.h"

#include "lumplatform/codepage.h"

namespace {

struct PageId {
    unsigned codePage;
    LumCodePageMapper::code_page_id id;
};

constexpr PageId kIds[] = {
    {932, LumCodePageMapper::CODE_PAGE_ANSI_932},   {936, LumCodePageMapper::CODE_PAGE_ANSI_936},
    {949, LumCodePageMapper::CODE_PAGE_ANSI_949},   {950, LumCodePageMapper::CODE_PAGE_ANSI_950},
    {1361, LumCodePageMapper::CODE_PAGE_ANSI_1361}, {20936, LumCodePageMapper::CODE_PAGE_DBCS_22},
    {51949, LumCodePageMapper::CODE_PAGE_DBCS_24},  {874, LumCodePageMapper::CODE_PAGE_ANSI_874},
    {1250, LumCodePageMapper::CODE_PAGE_ANSI_1250}, {1251, LumCodePageMapper::CODE_PAGE_ANSI_1251},
    {1252, LumCodePageMapper::CODE_PAGE_ANSI_1252}, {1253, LumCodePageMapper::CODE_PAGE_ANSI_1253},
    {1254, LumCodePageMapper::CODE_PAGE_ANSI_1254}, {1255, LumCodePageMapper::CODE_PAGE_ANSI_1255},
    {1256, LumCodePageMapper::CODE_PAGE_ANSI_1256}, {1257, LumCodePageMapper::CODE_PAGE_ANSI_1257},
    {1258, LumCodePageMapper::CODE_PAGE_ANSI_1258},
};

}  // namespace

LumCodePageMapper::code_page_id LumCodePageMapper::ansiCpToKvoreCp(unsigned codePage) {
    for (const PageId& p : kIds)
        if (p.codePage == codePage) return p.id;
    return CODE_PAGE_UNDEFINED;
}

unsigned LumCodePageMapper::kvoreCpToAnsiCp(code_page_id id) {
    for (const PageId& p : kIds)
        if (p.id == id) return p.codePage;
    return 0;
}

unsigned lumGetACP() {
    static const unsigned acp = lumplatform::processAnsiCodePage();
    return acp;
}
