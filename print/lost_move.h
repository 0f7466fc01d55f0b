// What becomes of text for whose place the printer was told in vain.
#pragma once

namespace passbook {

/// A move of the paper was not sent whole.
enum class LostMove {
    printsAnyway,   ///< the text is printed where the paper is: a line that broke shows at the next command
    printsNothing,  ///< it is not
};

}  // namespace passbook
