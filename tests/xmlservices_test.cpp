// Design XML: what is written, what is read, and what is refused.
#include <orvo/xmlservices.h>

#include "support/invariants.h"
#include "support/randomedits.h"

#include <orvo/block.h>
#include <orvo/context.h>
#include <orvo/design.h>
#include <orvo/limits.h>
#include <orvo/model.h>
#include <orvo/staticstrings.h>
#include <orvo/wire.h>

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>
#include <xercesc/dom/DOM.hpp>
#include <xercesc/framework/MemBufFormatTarget.hpp>
#include <xercesc/framework/MemBufInputSource.hpp>
#include <xercesc/util/PlatformUtils.hpp>
#include <xercesc/util/TransService.hpp>
#include <xercesc/util/XMLString.hpp>

#include <filesystem>
#include <fstream>
#include <sstream>

namespace orvo {
namespace {

using Errors = std::vector<std::string>;

constexpr const char *kOpen = "<kelmar xmlns=\"http://orvo.example/ns/2011/kelmar\">";

std::string document(const std::string &inside) {
    return std::string(kOpen) + "<design version=\"1.2\">" + inside + "</design></kelmar>";
}

class XmlTest : public ::testing::Test {
  protected:
    /// Reads into a fresh design; gives the errors heard, as "NAME row:column".
    Errors read(const std::string &text, bool fail = true) {
        design = std::make_unique<Design>(mgr.context());
        Errors errors;
        std::istringstream in(text);
        xml.fromXML(in, *design, [&](XMLServices::ErrorType type, int row, int column) {
            errors.push_back(std::string(XMLServices::ErrorTypeToString(type)) + " " + std::to_string(row) + ":" +
                             std::to_string(column));
            return fail;
        });
        failed = in.fail();
        return errors;
    }
    /// The same, without the places.
    Errors errorsOf(const std::string &text, bool fail = true) {
        Errors errors = read(text, fail);
        for (std::string &error : errors) {
            error.resize(error.find(' '));
        }
        return errors;
    }
    std::string write() {
        std::ostringstream out;
        xml.toXML(out, *design);
        EXPECT_TRUE(out.good());
        return out.str();
    }
    PureValueRef name(const std::string &text) { return pureVR(Value::parse(text, mgr.context())); }
    Model *model(const std::string &text) { return design->getModel(name(text)); }

    ContextMgr mgr;
    XMLServices xml;
    std::unique_ptr<Design> design;
    bool failed = false;
};

TEST_F(XmlTest, readsModelsBlocksWiresAndConnections) {
    EXPECT_EQ(read(document("<param name=\"k\">5</param>"
                            "<model name=\"below\"/>"
                            "<model name=\"m\"><param name=\"(a 1)\">(x ^3)</param>"
                            "<block name=\"reader\"><param name=\"0\">[/m/source/w]</param></block>"
                            "<block name=\"source\"><param name=\"blockType\">modelBlock</param>"
                            "<param name=\"modelNode\">[/below]</param><wire name=\"w\"/></block></model>")),
              Errors{});
    EXPECT_FALSE(failed);
    Block *reader = model("m")->getBlock(name("reader"));
    Block *source = model("m")->getBlock(name("source"));
    EXPECT_EQ(reader->getPort(name("0"))->getWire(), source->getWire(name("w")));
    EXPECT_EQ(model("below")->getParentBlocks(), (std::list<Block *>{source}));
    EXPECT_EQ(design->getParam(name("k")), ValueRef(name("5")));
    EXPECT_TRUE(test::checkInvariants(*design));
}

TEST_F(XmlTest, reportsTheSecondOfTwoDesigns) {
    const std::string two = std::string(kOpen) + "<design version=\"1.2\"><model name=\"a\"/></design>"
                                                 "<design version=\"1.2\"><model name=\"b\"/></design></kelmar>";
    EXPECT_EQ(errorsOf(two), Errors{"ERR_UNEXPECTED_DESIGN_ELEMENT"});
    EXPECT_TRUE(failed);
    EXPECT_NE(model("a"), nullptr);
    EXPECT_EQ(model("b"), nullptr);
    errorsOf(two, false);
    EXPECT_FALSE(failed);
}

TEST_F(XmlTest, refusesADesignOfAnotherVersion) {
    EXPECT_EQ(errorsOf(std::string(kOpen) + "<design version=\"1.1\"/></kelmar>"),
              Errors{"ERR_NO_COMPATIBLE_DESIGN_ELEMENT"});
    EXPECT_EQ(errorsOf(std::string(kOpen) + "<design/></kelmar>"), Errors{"ERR_NO_COMPATIBLE_DESIGN_ELEMENT"});
    EXPECT_EQ(errorsOf(std::string(kOpen) + "<design version=\"1.1\"/><design version=\"1.2\"/></kelmar>"), Errors{});
    EXPECT_EQ(errorsOf(std::string(kOpen) + "</kelmar>"), Errors{"ERR_NO_DESIGN_ELEMENT"});
}

TEST_F(XmlTest, keepsTheSecondBlockOfANameUnderADuplicateName) {
    EXPECT_EQ(
        errorsOf(document("<model name=\"m\"><block name=\"b\"/><block name=\"b\"><wire name=\"w\"/></block></model>")),
        Errors{"ERR_BAD_BLOCK_NAME"});
    ASSERT_NE(model("m")->getBlock(name("(dupName 0 b)")), nullptr);
    EXPECT_EQ(model("m")->getBlock(name("(dupName 0 b)"))->getWireCount(), 1U);
}

TEST_F(XmlTest, reportsAPathToAMissingNodeWithItsPlace) {
    EXPECT_EQ(
        read(document("<model name=\"m\"><block name=\"b\">\n<param name=\"0\">[/m/c/w]</param></block></model>")),
        Errors{"ERR_VALUE_RESOLUTION_FAILED 2:33"});
    EXPECT_TRUE(failed);
}

TEST_F(XmlTest, reportsAPathToAMissingNodeWhereverItStandsInATuple) {
    for (const char *value : {"([/m] [/nope])", "([/nope] [/m])", "(a [/nope])", "([/m] (1 ([/m] [/nope])))"}) {
        EXPECT_EQ(errorsOf(document("<model name=\"m\"><param name=\"k\">" + std::string(value) + "</param></model>")),
                  Errors{"ERR_VALUE_RESOLUTION_FAILED"})
            << value;
    }
}

TEST_F(XmlTest, refusesToReadIntoADesignThatIsNotEmpty) {
    Design full(mgr.context());
    Model::create(full, "m");
    std::istringstream in(document(""));
    EXPECT_EXIT(xml.fromXML(in, full, XMLServices::silentErrorFunc), ::testing::ExitedWithCode(1), "not empty");
}

/// A document and the errors that it gives.
struct Fault {
    std::string text;
    Errors errors;
};

TEST_F(XmlTest, namesEachErrorAndReadsOn) {
    const Fault faults[] = {
        {"", {"ERR_MALFORMED_XML"}},
        {"no xml", {"ERR_MALFORMED_XML"}},
        {document("<model name=\"m\">"), {"ERR_MALFORMED_XML"}},
        {"<kelmar/>", {"ERR_BAD_TOPLEVEL_NAMESPACE"}},
        {"<other xmlns=\"http://orvo.example/ns/2011/kelmar\"/>", {"ERR_BAD_TOPLEVEL_ELEMENT"}},
        {document("<param name=\"\">1</param>"), {"ERR_BAD_PARAM_NAME"}},
        {document("<param>1</param>"), {"ERR_BAD_PARAM_NAME"}},
        {document("<param name=\"[/m]\">1</param>"), {"ERR_BAD_PARAM_NAME"}},
        {document("<param name=\"k\">)</param>"), {"ERR_BAD_PARAM_VALUE"}},
        {document("<param name=\"k\"/>"), {"ERR_BAD_PARAM_VALUE"}},
        {document("<param name=\"k\">1</param><param name=\"k\">2</param>"), {"ERR_DUPLICATE_PARAM_NAME"}},
        {document("<wire name=\"w\"/>"), {"ERR_UNEXPECTED_WIRE_ELEMENT"}},
        {document("<model name=\"m\"><wire name=\"w\"/></model>"), {"ERR_UNEXPECTED_WIRE_ELEMENT"}},
        {document("<model name=\"m\"><block name=\"b\"><wire name=\"w\"/><wire name=\"w\"/></block></model>"),
         {"ERR_BAD_WIRE_NAME"}},
        {document("<model name=\"m\"><block name=\"b\"><wire/></block></model>"), {"ERR_BAD_WIRE_NAME"}},
        {document("<block name=\"b\"/>"), {"ERR_UNEXPECTED_BLOCK_ELEMENT"}},
        {document("<model name=\"m\"><block name=\")\"/></model>"), {"ERR_BAD_BLOCK_NAME"}},
        {document("<model name=\"m\"><model name=\"n\"/></model>"), {"ERR_UNEXPECTED_MODEL_ELEMENT"}},
        {document("<model name=\"m\"/><model name=\"m\"/>"), {"ERR_BAD_MODEL_NAME"}},
        {document("<design version=\"1.2\"/>"), {"ERR_UNEXPECTED_DESIGN_ELEMENT"}},
        {document("<model name=\"m\"><design/></model>"), {"ERR_UNEXPECTED_DESIGN_ELEMENT"}},
        {document("<param name=\"k\">)</param><block name=\"b\"/><param name=\"j\">)</param>"),
         {"ERR_BAD_PARAM_VALUE", "ERR_UNEXPECTED_BLOCK_ELEMENT", "ERR_BAD_PARAM_VALUE"}},
    };
    for (const Fault &fault : faults) {
        EXPECT_EQ(errorsOf(fault.text), fault.errors) << fault.text;
        EXPECT_TRUE(failed) << fault.text;
    }
}

TEST_F(XmlTest, tellsRowAndColumnOfAnError) {
    EXPECT_EQ(read(std::string(kOpen) + "\n<design version=\"1.2\">\n  <wire name=\"w\"/>\n</design>\n</kelmar>\n"),
              Errors{"ERR_UNEXPECTED_WIRE_ELEMENT 3:19"});
    EXPECT_EQ(read("<kelmar>\n<oops"), (Errors{"ERR_BAD_TOPLEVEL_NAMESPACE 1:9"}));
}

TEST_F(XmlTest, goesOnWhereTheErrorFunctionLetsAnErrorPass) {
    EXPECT_EQ(errorsOf("<other><design version=\"1.2\"/></other>", false),
              (Errors{"ERR_BAD_TOPLEVEL_NAMESPACE", "ERR_BAD_TOPLEVEL_ELEMENT", "ERR_NO_DESIGN_ELEMENT"}));
    EXPECT_FALSE(failed);
    EXPECT_EQ(errorsOf(document("<param name=\"k\">)</param><model name=\"m\"/>"), false),
              Errors{"ERR_BAD_PARAM_VALUE"});
    EXPECT_FALSE(failed);
    EXPECT_NE(model("m"), nullptr);
}

TEST_F(XmlTest, tellsOfTextBehindANameOrAKey) {
    EXPECT_EQ(errorsOf(document("<model name=\"top q\"><block name=\"b/c\"><wire name=\"0 zz\"/></block></model>")),
              (Errors{"ERR_BAD_MODEL_NAME", "ERR_BAD_BLOCK_NAME", "ERR_BAD_WIRE_NAME"}));
    EXPECT_TRUE(failed);
    // The rest of a key may be what makes it another one.
    EXPECT_EQ(errorsOf(document("<param name=\"typePinType z\">1</param>"), false), Errors{"ERR_BAD_PARAM_NAME"});
    EXPECT_EQ(design->findParam(A_TYPE_PIN_TYPE), nullptr);
    EXPECT_EQ(errorsOf(document("<model name=\" (top  q) \"><block name=\"&quot;b c&quot;\"/></model>")), Errors{});
}

TEST_F(XmlTest, tellsOfTextBehindTheValueOfAParameter) {
    const std::string longText(100, 'x');
    const std::string texts[] = {"3/4",    "a/b",       "(1 2) 5", "3x",           "1 2",
                                 "\"a\"b", "[/m] [/m]", "0x8p-4.", longText + "/b"};
    for (const std::string &text : texts) {
        const std::string params = "<param name=\"k\">" + text + "</param><param name=\"j\">" + text + "</param>";
        EXPECT_EQ(errorsOf(document(params + "<model name=\"m\"/>")),
                  (Errors{"ERR_BAD_PARAM_VALUE", "ERR_BAD_PARAM_VALUE"}))
            << text;
        EXPECT_TRUE(failed) << text;
    }
    // Where the error is let pass, the first value stands.
    EXPECT_EQ(errorsOf(document("<param name=\"k\">3/4</param>"), false), Errors{"ERR_BAD_PARAM_VALUE"});
    EXPECT_FALSE(failed);
    EXPECT_EQ(design->getParam(name("k")), ValueRef(name("3")));
}

TEST_F(XmlTest, takesWhiteSpaceAroundTheValueOfAParameter) {
    for (const std::string text : {" 3 ", "\n\ta\n", "(1 2)\n ", " \"a\" ", " [/m]\n", "0x8p-4 "}) {
        EXPECT_EQ(errorsOf(document("<param name=\"k\">" + text + "</param><model name=\"m\"/>")), Errors{}) << text;
    }
}

TEST_F(XmlTest, skipsElementsOfOtherNamesAndNamespaces) {
    EXPECT_EQ(errorsOf(document("<note><model name=\"a\"/></note><x:model xmlns:x=\"u\" name=\"b\"/>"
                                "<model name=\"c\"><!-- comment --><?pi?></model>")),
              Errors{});
    EXPECT_EQ(design->size(), 1U);
}

TEST_F(XmlTest, takesTheWholeTextOfAParam) {
    EXPECT_EQ(errorsOf(document("<param name=\"k\">(1 <x>2<y/> </x><![CDATA[3)]]></param>")), Errors{});
    EXPECT_EQ(design->getParam(name("k"))->toString(), "(1 2 3)");
}

TEST_F(XmlTest, refusesADocumentTypeAndOpensNothing) {
    const std::string secret = ::testing::TempDir() + "orvo-secret.txt";
    std::ofstream(secret) << "7";
    const std::string types[] = {
        "<!DOCTYPE kelmar>",
        "<!DOCTYPE kelmar [<!ENTITY a \"aaaaaaaaaa\"><!ENTITY b \"&a;&a;&a;&a;\">]>",
        "<!DOCTYPE kelmar [<!ENTITY e SYSTEM \"file://" + secret + "\">]>",
        "<!DOCTYPE kelmar SYSTEM \"file://" + secret + "\">",
        "<!DOCTYPE kelmar PUBLIC \"x\" \"http://orvo.example/x.dtd\">",
    };
    for (const std::string &type : types) {
        EXPECT_EQ(errorsOf(type + document("<param name=\"k\">&e;</param>")), Errors{"ERR_MALFORMED_XML"}) << type;
        EXPECT_EQ(design->param_size(), 0U);
        EXPECT_EQ(errorsOf(type + document("")), Errors{"ERR_MALFORMED_XML"}) << type;
    }
    std::filesystem::remove(secret);
}

std::string repeated(const std::string &text, std::size_t count) {
    std::string all;
    for (std::size_t i = 0; i < count; ++i) {
        all += text;
    }
    return all;
}

TEST_F(XmlTest, nestsElementsUpToItsLimit) {
    const std::size_t inside = limits::kXmlDepth - 2;
    EXPECT_EQ(errorsOf(document(repeated("<x>", inside) + repeated("</x>", inside))), Errors{});
    EXPECT_EQ(errorsOf(document(repeated("<x>", inside + 1) + repeated("</x>", inside + 1))),
              Errors{"ERR_MALFORMED_XML"});
    EXPECT_EQ(errorsOf(document(repeated("<x>", 100000))), Errors{"ERR_MALFORMED_XML"});
}

TEST_F(XmlTest, takesAttributesUpToItsLimits) {
    const std::string longName(limits::kXmlAttributeBytes, 'a');
    EXPECT_EQ(errorsOf(document("<model name=\"" + longName + "\"/>")), Errors{});
    EXPECT_EQ(errorsOf(document("<model name=\"" + longName + "a\"/>")), Errors{"ERR_BAD_MODEL_NAME"});
    std::string attributes;
    for (std::size_t i = 1; i < limits::kXmlAttributes; ++i) {
        attributes += " a" + std::to_string(i) + "=\"\"";
    }
    EXPECT_EQ(errorsOf(document("<model name=\"m\"" + attributes + "/>")), Errors{});
    EXPECT_EQ(errorsOf(document("<model name=\"m\"" + attributes + " b=\"\"/>")), Errors{"ERR_MALFORMED_XML"});
}

TEST_F(XmlTest, takesTextUpToItsLimit) {
    const std::string quoted = "\"" + std::string(limits::kXmlTextBytes - 2, 'a') + "\"";
    EXPECT_EQ(errorsOf(document("<param name=\"k\">" + quoted + "</param>")), Errors{});
    EXPECT_EQ(errorsOf(document("<param name=\"k\">" + quoted + " </param>")), Errors{"ERR_BAD_PARAM_VALUE"});
}

TEST_F(XmlTest, boundsTheElementsThatRepeatsMake) {
    EXPECT_EQ(errorsOf(document("<param name=\"k\">(0 ^2000000000)</param>")), Errors{"ERR_BAD_PARAM_VALUE"});
    std::string params;
    const std::size_t each = limits::kRepeatCount;
    for (std::size_t i = 0; i <= limits::kDocumentRepeatedElements / each + 1; ++i) {
        params += "<param name=\"k" + std::to_string(i) + "\">(" + std::to_string(i) + " ^" + std::to_string(each) +
                  ")</param>";
    }
    EXPECT_EQ(errorsOf(document(params)), Errors{"ERR_BAD_PARAM_VALUE"});
}

TEST_F(XmlTest, letsALongDocumentRepeatMore) {
    // Beyond the bound of a short document, below and above that of this one.
    const std::string padding(limits::kDocumentRepeatedElements * 3 / limits::kDocumentRepeatedElementsPerByte, ' ');
    const auto repeats = [](std::size_t count) {
        std::string params;
        for (std::size_t i = 0; i < count; ++i) {
            params += "<param name=\"k" + std::to_string(i) + "\">(" + std::to_string(i) + " ^" +
                      std::to_string(limits::kRepeatCount) + ")</param>";
        }
        return params;
    };
    const std::size_t most = limits::kDocumentRepeatedElements / limits::kRepeatCount;
    EXPECT_EQ(errorsOf(document(padding + repeats(most * 2))), Errors{});
    EXPECT_EQ(errorsOf(document(padding + repeats(most * 4))), Errors{"ERR_BAD_PARAM_VALUE"});
}

TEST_F(XmlTest, tellsThePlaceOfAByteThatIsNoCharacter) {
    std::string lines;
    for (int i = 0; i < 5000; ++i) {
        lines += "<model name=\"m" + std::to_string(i) + "\"/>\n";
    }
    for (const char *bad : {"\xff", "\xc3(", "\xed\xa0\x80", "\xf4\x90\x80\x80", "\xe0\x80\x80"}) {
        const std::string text = document(lines + "<!-- \xc3\xa9" + bad + " -->");
        const auto row =
            static_cast<int>(std::count(text.begin(), text.begin() + static_cast<long>(text.find("<!--")), '\n')) + 1;
        EXPECT_EQ(read(text), Errors{"ERR_MALFORMED_XML " + std::to_string(row) + ":7"}) << bad;
    }
}

TEST_F(XmlTest, boundsTheElementsThatRepeatsMakeInNamesAndKeys) {
    std::string blocks;
    std::string keys;
    for (int i = 0; i < 40; ++i) {
        const std::string name = "\"(" + std::to_string(i) + " ^1048576)\"";
        blocks += "<block name=" + name + "/>";
        keys += "<param name=" + name + ">a</param>";
    }
    EXPECT_EQ(errorsOf(document("<model name=\"m\">" + blocks + "</model>")), Errors{"ERR_BAD_BLOCK_NAME"});
    EXPECT_EQ(errorsOf(document(keys)), Errors{"ERR_BAD_PARAM_NAME"});
}

TEST_F(XmlTest, boundsTheElementsThatRepeatsMakeInPaths) {
    std::string params;
    for (int i = 0; i < 40; ++i) {
        params += "<param name=\"" + std::to_string(i) + "\">[/m/(" + std::to_string(i) + " ^1048576)]</param>";
    }
    const Errors errors = errorsOf(document("<model name=\"m\"/>" + params));
    EXPECT_EQ(errors.size(), 17U);
    EXPECT_EQ(errors.back(), "ERR_VALUE_RESOLUTION_FAILED");
}

TEST_F(XmlTest, readsManyLargeZeroedMemories) {
    // More elements than a short document may make, for this one is long enough.
    std::string blocks;
    for (int i = 0; i < 4200; ++i) {
        const std::string number = std::to_string(i);
        blocks += "<block name=\"memory" + number + "\"><param name=\"data\">(" + number +
                  " 0 ^4095)</param></block>\n" + std::string(40, ' ');
    }
    EXPECT_EQ(errorsOf(document("<model name=\"m\">" + blocks + "</model>")), Errors{});
}

TEST_F(XmlTest, bindsATupleThatOccursVeryOftenOnce) {
    EXPECT_EQ(errorsOf(document("<model name=\"m\"/><param name=\"k\">(([/m] ^1000000) ^1000000)</param>")), Errors{});
}

TEST_F(XmlTest, survivesEveryTruncationAndManyMutations) {
    const std::string whole =
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n" +
        document("<model name=\"m\"><block name=\"b\"><param name=\"0\">[/m/b/w]</param>"
                 "<param name=\"t\">(a \"&lt;\xc3\xa9\" ^3)</param><wire name=\"w\"/></block></model>");
    EXPECT_EQ(errorsOf(whole), Errors{});
    for (std::size_t length = 0; length < whole.size(); ++length) {
        EXPECT_FALSE(errorsOf(whole.substr(0, length)).empty()) << length;
    }
    std::uint32_t bits = 1;
    for (int round = 0; round < 3000; ++round) {
        std::string text = whole;
        for (int i = 0; i < 2; ++i) {
            bits = bits * 1664525U + 1013904223U;
            text[(bits >> 8) % text.size()] = static_cast<char>(bits >> 24);
        }
        errorsOf(text);
        if (!failed) {
            EXPECT_TRUE(test::checkInvariants(*design)) << text;
        }
    }
}

TEST_F(XmlTest, writesNothingThatCannotBeReadBack) {
    for (const char *text : {"\x01", "\xff\xfe", "\xed\xa0\x80", "\xc0\x80", "\xef\xbf\xbf", "\xf5\x80\x80\x80"}) {
        design = std::make_unique<Design>(mgr.context());
        Model::create(*design, "m")->setParam(name("k"), StringValue::get(text, mgr.context()));
        std::ostringstream out;
        xml.toXML(out, *design);
        EXPECT_TRUE(out.fail()) << text;
    }
}

TEST_F(XmlTest, leavesAFailedStreamFailed) {
    design = std::make_unique<Design>(mgr.context());
    std::ofstream closed;
    xml.toXML(closed, *design);
    EXPECT_TRUE(closed.fail());
    std::ifstream missing("/nonexistent");
    xml.fromXML(missing, *design, XMLServices::silentErrorFunc);
    EXPECT_TRUE(missing.fail());
}

TEST_F(XmlTest, passesAnExceptionOfTheErrorFunctionThrough) {
    Design fresh(mgr.context());
    std::istringstream in(document("<wire/>"));
    EXPECT_THROW(xml.fromXML(in, fresh, [](auto, int, int) -> bool { throw std::runtime_error("stop"); }),
                 std::runtime_error);
}

TEST(XmlErrorFunctions, printAnErrorOrKeepSilent) {
    ::testing::internal::CaptureStderr();
    EXPECT_TRUE(XMLServices::defaultErrorFunc(XMLServices::ERR_BAD_WIRE_NAME, 3, 4));
    EXPECT_EQ(::testing::internal::GetCapturedStderr(),
              "XMLServices: Parse Error: type=ERR_BAD_WIRE_NAME row=3 col=4\n");
    ::testing::internal::CaptureStderr();
    EXPECT_TRUE(XMLServices::silentErrorFunc(XMLServices::ERR_BAD_WIRE_NAME, 3, 4));
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
}

/// The document as a tree, serialised with pretty printing: the form that the streaming writer must equal.
class DomWriter {
  public:
    DomWriter() { xercesc::XMLPlatformUtils::Initialize(); }
    ~DomWriter() { xercesc::XMLPlatformUtils::Terminate(); }

    std::string write(const Design &design) {
        const std::u16string features = u"LS";
        auto *implementation = xercesc::DOMImplementationRegistry::getDOMImplementation(wide(u"LS"));
        auto *document = implementation->createDocument(mNamespace.c_str(), wide(u"kelmar"), nullptr);
        serialNode(*document, *document->getDocumentElement(), design);
        auto *serializer = static_cast<xercesc::DOMImplementationLS *>(implementation)->createLSSerializer();
        serializer->getDomConfig()->setParameter(xercesc::XMLUni::fgDOMWRTFormatPrettyPrint, true);
        auto *output = static_cast<xercesc::DOMImplementationLS *>(implementation)->createLSOutput();
        xercesc::MemBufFormatTarget target;
        output->setByteStream(&target);
        serializer->write(document, output);
        std::string text(reinterpret_cast<const char *>(target.getRawBuffer()), target.getLen());
        output->release();
        serializer->release();
        document->release();
        return text;
    }

  private:
    static const XMLCh *wide(const char16_t *text) { return reinterpret_cast<const XMLCh *>(text); }
    static std::basic_string<XMLCh> wide(const std::string &text) {
        xercesc::TranscodeFromStr transcoded(reinterpret_cast<const XMLByte *>(text.data()), text.size(), "UTF-8");
        return std::basic_string<XMLCh>(transcoded.str(), transcoded.length());
    }
    xercesc::DOMElement *element(xercesc::DOMDocument &document, xercesc::DOMElement &parent, const char16_t *tag) {
        auto *made = document.createElementNS(mNamespace.c_str(), wide(tag));
        parent.appendChild(made);
        return made;
    }
    void serialNode(xercesc::DOMDocument &document, xercesc::DOMElement &parent, const Node &node) {
        static const char16_t *const tags[] = {u"design", u"model", u"block", u"wire"};
        auto *made = element(document, parent, tags[static_cast<int>(node.nodeKind())]);
        if (node.nodeKind() == NodeKind::Design) {
            made->setAttribute(wide(u"version"), wide(u"1.2"));
        } else {
            made->setAttribute(wide(u"name"), wide(node.getName()->toString()).c_str());
        }
        for (auto param : Params(node)) {
            auto *child = element(document, *made, u"param");
            child->setAttribute(wide(u"name"), wide(param.first->toString()).c_str());
            child->appendChild(document.createTextNode(wide(param.second->toString()).c_str()));
        }
        for (auto child : node) {
            serialNode(document, *made, *child.second);
        }
    }
    std::basic_string<XMLCh> mNamespace = wide(std::string("http://orvo.example/ns/2011/kelmar"));
};

TEST_F(XmlTest, writesTheBytesOfThePrettyPrintingTreeForEveryExample) {
    DomWriter dom;
    int examples = 0;
    for (const auto &entry : std::filesystem::directory_iterator(std::string(ORVO_TEST_SOURCE_DIR) + "/examples")) {
        if (entry.path().extension() == ".xml") {
            std::ifstream in(entry.path());
            std::stringstream text;
            text << in.rdbuf();
            EXPECT_EQ(errorsOf(text.str()), Errors{}) << entry.path();
            EXPECT_EQ(write(), dom.write(*design)) << entry.path();
            EXPECT_EQ(write(), text.str()) << entry.path();
            ++examples;
        }
    }
    EXPECT_GE(examples, 4);
}

TEST_F(XmlTest, writesOddCharactersAsTheTreeDoes) {
    design = std::make_unique<Design>(mgr.context());
    const auto text = [&](const std::string &content) { return StringValue::get(content, mgr.context()); };
    int number = 0;
    // Line ends of several kinds, deletes, separators, ends of sections, and characters beyond the first plane.
    for (const char *odd : {"\r", "a\r\nb", "\n", "\t", "\x7f", "\xc2\x85", "\xe2\x80\xa8", "]]>", "<&>\"'", "\xc2\xa0",
                            "\xef\xbf\xbd", "\xf0\x9f\x98\x80", " lead", "trail ", "  ", "\xee\x80\x80"}) {
        design->setParam(text("k" + std::to_string(number++)), text(odd));
        design->setParam(text(std::string("key ") + odd), text("v"));
        Model::create(*design, text(std::string("model ") + odd));
    }
    const std::string first = write();
    EXPECT_EQ(first, DomWriter().write(*design));
    EXPECT_EQ(errorsOf(first), Errors{});
    EXPECT_EQ(write(), first);
    EXPECT_EQ(design->size(), 16U);
}

RC_GTEST_FIXTURE_PROP(XmlTest, writesTheBytesOfThePrettyPrintingTree, (const std::vector<std::uint32_t> &edits)) {
    design = std::make_unique<Design>(mgr.context());
    test::applyEdits(*design, edits);
    RC_ASSERT(write() == DomWriter().write(*design));
}

RC_GTEST_FIXTURE_PROP(XmlTest, readsBackWhatItWroteToTheSameBytes, (const std::vector<std::uint32_t> &edits)) {
    design = std::make_unique<Design>(mgr.context());
    test::applyEdits(*design, edits);
    test::applyEdits(*design, edits);
    for (Model &model : *design) {
        // A path to a node that is gone is no path to a node.
        for (Block &block : model) {
            if (block[A_MODEL_NODE] && Node::from<Model>(block[A_MODEL_NODE]) == nullptr) {
                block.setParam(A_MODEL_NODE, nullptr);
            }
        }
    }
    const std::string first = write();
    RC_ASSERT(read(first).empty());
    RC_ASSERT(static_cast<bool>(test::checkInvariants(*design)));
    RC_ASSERT(write() == first);
}

} // namespace
} // namespace orvo
