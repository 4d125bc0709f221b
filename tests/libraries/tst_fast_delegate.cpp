#include "literals.h"

#include <fast_delegate/fast_delegate.h>

#include <QString>
#include <QtTest>

#include <type_traits>
#include <utility>

using fastdelegate::FastDelegate2;

using Delegate = FastDelegate2<int, int, int>;
Q_DECLARE_METATYPE(Delegate)

namespace
{

/// The digits of three numbers, so that none can be taken for another.
int digits(int first, int second, int third)
{
    return 100 * first + 10 * second + third;
}

struct Base
{
    explicit Base(int initial) : value(initial) {}
    virtual ~Base() = default;

    int value;

    int add(int a, int b) { return value += a + b; }
    int member(int a, int b) { return digits(value, a, b); }
    int constMember(int a, int b) const { return digits(value, a, b); }
    int noexceptMember(int a, int b) noexcept { return digits(value, a, b); }
    virtual int virtualMember(int, int) { return 0; }
    virtual int virtualConstMember(int, int) const { return 0; }
};

struct Derived : Base
{
    Derived() : Base(1) {}
    int virtualMember(int a, int b) override { return digits(value, a, b); }
    int virtualConstMember(int a, int b) const override { return digits(value, a, b); }
};

struct OtherBase
{
    virtual ~OtherBase() = default;
    int other = 2;
};

struct SecondBase : OtherBase, Base
{
    SecondBase() : Base(3) {}
    int ownMember(int a, int b) { return digits(other, a, b); }
    int virtualMember(int a, int b) override { return digits(other, a, b); }
};

struct VirtualBase : virtual Base
{
    VirtualBase() : Base(4) {}
    int padding = 0;
};

// Plain classes, since g++'s check of virtual tables takes the call of a converted function for an error.
struct Left
{
    void* left = nullptr;
};

struct Right
{
    void* unused = nullptr;
    int right = 5;

    int member(int a, int b) { return digits(right, a, b); }
};

struct Plain : Left, Right
{
};

/// Counts how often a value is copied on its way through a call.
struct Traveller
{
    Traveller() = default;
    Traveller(Traveller const& other) : copies(other.copies + 1) {}
    Traveller(Traveller&&) = default;
    Traveller& operator=(Traveller const&) = default;
    Traveller& operator=(Traveller&&) = default;
    ~Traveller() = default;

    int copies = 0;
};

struct Receiver
{
    void byConstReference(Traveller const& traveller, int) { seen = &traveller; }
    void byReference(Traveller& traveller, int& count)
    {
        seen = &traveller;
        ++count;
    }
    void byRvalue(Traveller&& traveller, int) { seen = &traveller; }
    // NOLINTNEXTLINE(performance-unnecessary-value-param)
    int byValue(int, Traveller traveller) { return traveller.copies; }

    void const* seen = nullptr;
};

} // namespace

class TestFastDelegate : public QObject
{
    Q_OBJECT

private slots:
    void callsFunction_data()
    {
        QTest::addColumn<Delegate>("delegate");
        QTest::addColumn<int>("answer");

        static Derived derived;
        static Derived const constant;
        static SecondBase second;
        static VirtualBase virtualBase;
        static Plain plain;
        Base& base = derived;
        int (Plain::*const converted)(int, int) = &Right::member;
        auto const row = [](char const* function, Delegate delegate, int answer) {
            QTest::newRow(function) << delegate << answer;
        };
        row("of the class", Delegate(&base, &Base::member), 189);
        row("inherited", Delegate(&derived, &Derived::member), 189);
        row("const, of a constant", Delegate(&constant, &Base::constMember), 189);
        row("const, of a variable", Delegate(&base, &Base::constMember), 189);
        row("noexcept", Delegate(&base, &Base::noexceptMember), 189);
        row("virtual", Delegate(&base, &Base::virtualMember), 189);
        row("virtual and const", Delegate(&base, &Base::virtualConstMember), 189);
        row("of a class with two bases", Delegate(&second, &SecondBase::ownMember), 289);
        row("of a second base", Delegate(&second, &SecondBase::member), 389);
        row("const, of a second base", Delegate(&second, &SecondBase::constMember), 389);
        row("virtual, of a second base", Delegate(&second, &Base::virtualMember), 289);
        row("of a virtual base", Delegate(&virtualBase, &Base::member), 489);
        // It carries its own adjustment of the address.
        row("of a second base, made one of the class", Delegate(&plain, converted), 589);
    }

    void callsFunction()
    {
        QFETCH(Delegate, delegate);
        QTEST(delegate(8, 9), "answer");
        QVERIFY(!delegate.empty());
        QVERIFY(static_cast<bool>(delegate));
        QCOMPARE(!delegate, false);
        QVERIFY(delegate != nullptr);
        QVERIFY(!(delegate == nullptr));
    }

    void empty_data()
    {
        QTest::addColumn<Delegate>("delegate");

        static Base base(1);
        int (Base::*const none)(int, int) = nullptr;
        Delegate cleared(&base, &Base::member);
        cleared.clear();
        Delegate assigned(&base, &Base::member);
        assigned = nullptr;
        QTest::newRow("default constructed") << Delegate();
        QTest::newRow("from nullptr") << Delegate(nullptr);
        QTest::newRow("bound to no function") << Delegate(&base, none);
        QTest::newRow("cleared") << cleared;
        QTest::newRow("assigned nullptr") << assigned;
    }

    void empty()
    {
        QFETCH(Delegate, delegate);
        QCOMPARE(delegate(8, 9), 0);
        QVERIFY(delegate.empty());
        QVERIFY(!delegate);
        QVERIFY(!static_cast<bool>(delegate));
        QVERIFY(delegate == nullptr);
        QVERIFY(!(delegate != nullptr));
    }

    void emptyAnswersInitialisedValue()
    {
        struct Pair
        {
            int number;
            void* pointer;
        };
        QCOMPARE((FastDelegate2<int, int, bool>()(1, 2)), false);
        QCOMPARE((FastDelegate2<int, int, double>()(1, 2)), 0.0);
        QVERIFY((FastDelegate2<int, int, QString>()(1, 2)).isNull());
        Pair const pair = FastDelegate2<int, int, Pair>()(1, 2);
        QCOMPARE(pair.number, 0);
        QVERIFY(pair.pointer == nullptr);
        FastDelegate2<int, int>()(1, 2);
    }

    void bindsToItsObject()
    {
        Base one(1);
        Base two(2);
        Delegate addToOne(&one, &Base::add);
        Delegate const addToTwo(&two, &Base::add);
        Delegate const copy(addToOne);
        QCOMPARE(addToOne(10, 0), 11);
        QCOMPARE(addToTwo(20, 0), 22);
        addToOne = addToTwo;
        QCOMPARE(addToOne(30, 0), 52);
        addToOne.clear();
        QCOMPARE(copy(0, 40), 51);
        QCOMPARE(one.value, 51);
        QCOMPARE(two.value, 52);
        // As a command does that binds its next handler in place.
        addToOne = Delegate(&one, &Base::constMember);
        QCOMPARE(addToOne(0, 0), 5100);
    }

    void passesArgumentsThrough()
    {
        Receiver receiver;
        Traveller traveller;
        void const* const address = &traveller;

        FastDelegate2<Traveller const&, int> const byConstReference(&receiver, &Receiver::byConstReference);
        static_assert(std::is_void_v<decltype(byConstReference(traveller, 1))>);
        byConstReference(traveller, 1);
        QCOMPARE(std::exchange(receiver.seen, nullptr), address);

        int count = 0;
        FastDelegate2<Traveller&, int&> const byReference(&receiver, &Receiver::byReference);
        byReference(traveller, count);
        QCOMPARE(std::exchange(receiver.seen, nullptr), address);
        QCOMPARE(count, 1);

        FastDelegate2<int, Traveller, int> const byValue(&receiver, &Receiver::byValue);
        QCOMPARE(byValue(1, traveller), 1);
        QCOMPARE(byValue(1, Traveller()), 0);

        FastDelegate2<Traveller&&, int> const byRvalue(&receiver, &Receiver::byRvalue);
        byRvalue(std::move(traveller), 1);
        QCOMPARE(receiver.seen, address);
    }

    void isPlainValue()
    {
        // Plugins pass it by value to the host, so its size and its triviality are part of the contract with
        // them. It allocates nothing either, for nobody would free it.
        QVERIFY(std::is_trivially_copyable_v<Delegate>);
        QVERIFY(std::is_trivially_destructible_v<Delegate>);
        QCOMPARE(sizeof(Delegate), 2 * sizeof(void*) + sizeof(int(Base::*)(int, int)));
    }
};

QTEST_GUILESS_MAIN(TestFastDelegate)
#include "tst_fast_delegate.moc"
