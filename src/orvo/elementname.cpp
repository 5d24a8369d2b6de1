// Names of elements, read back.
#include <orvo/elementname.h>

namespace orvo {

bool ElementName::isPartWord(const PureValueRef &element) {
    const StringValueRef word = stringVR(element);
    return word && (word->str() == "real" || word->str() == "imag");
}

ElementName::ElementName(const PureValueRef &name) : whole(name) {
    const PureTupleValueRef tuple = pureTupleVR(name);
    if (!tuple || tuple->size() < 2 || pureTupleVR(tuple->at(0))) {
        return;
    }
    ElementName read(PureValueRef(tuple->at(0)));
    for (std::size_t i = 1; i < tuple->size(); ++i) {
        const PureValueRef element = tuple->at(i);
        const NumberValueRef number = numberVR(element);
        if (number && number->isInt() && number->toInt() >= 0) {
            read.lane = ++read.levels == 1 ? number->toInt() : -1;
        } else if (isPartWord(element) && !read.isPart) {
            read.isPart = true;
            read.isImaginary = stringVR(element)->str() == "imag";
        } else {
            return;
        }
    }
    *this = read;
}

} // namespace orvo
