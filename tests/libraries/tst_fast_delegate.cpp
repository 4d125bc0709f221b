#include "literals.h"

#include <fast_delegate/fast_delegate.h>

#include <QString>
#include <QtTest>

#include <cstdlib>
#include <new>
#include <type_traits>

using fastdelegate::FastDelegate2;

using SumDelegate = FastDelegate2<int, int, int>;
Q_DECLARE_METATYPE(SumDelegate)

namespace
{

// Volatile, for a compiler may take it that new changes nothing that it can see.
int volatile g_allocations = 0;

} // namespace

// The whole program allocates through these, so that a test can tell that a delegate does not.
void* operator new(std::size_t size)
{
    g_allocations = g_allocations + 1;
    if (void* const memory = std::malloc(size ? size : 1))
        return memory;
    throw std::bad_alloc();
}

void* operator new[](std::size_t size)
{
    return operator new(size);
}

void operator delete(void* memory) noexcept
{
    std::free(memory);
}

void operator delete[](void* memory) noexcept
{
    std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept
{
    std::free(memory);
}

void operator delete[](void* memory, std::size_t) noexcept
{
    std::free(memory);
}

namespace
{

struct Sum
{
    explicit Sum(int initial = 0) : base(initial) {}
    virtual ~Sum() = default;

    int base;

    int add(int a, int b) { return base += a + b; }
    int sum(int a, int b) const { return base + a + b; }
    int quiet(int a, int b) noexcept { return base - a - b; }
};

struct Inherits : Sum
{
    int ownMember = 7;
};

struct First
{
    virtual ~First() = default;
    int first = 1;
};

struct Second
{
    virtual ~Second() = default;
    int second = 20;

    int scaled(int a, int b) { return second * (a + b); }
    int scaledConst(int a, int b) const { return second * (a - b); }
    void const* address(int, int) { return this; }
};

struct Both : First, Second
{
    int own = 300;
    int ownScaled(int a, int b) { return own * (a + b); }
};

struct Left
{
    void* left = nullptr;
};

struct Right
{
    void* unused = nullptr;
    int right = 4;

    int scaled(int a, int b) { return right * (a + b); }
};

struct Plain : Left, Right
{
};

struct Shape
{
    virtual ~Shape() = default;
    virtual QString name(int, int) { return "shape"_s; }
    virtual QString constName(int, int) const { return "const shape"_s; }
};

struct Circle : Shape
{
    QString name(int, int) override { return "circle"_s; }
    QString constName(int, int) const override { return "const circle"_s; }
};

// The overridden function's table is the second one of the object.
struct LateCircle : First, Shape
{
    QString name(int, int) override { return "late circle"_s; }
};

struct Diamond : virtual Sum
{
    int padding = 0;
};

/// Counts what happens to a value on its way through a call.
struct Traveller
{
    Traveller() = default;
    Traveller(Traveller const& other) : copies(other.copies + 1), moves(other.moves) {}
    Traveller(Traveller&& other) noexcept : copies(other.copies), moves(other.moves + 1) {}
    Traveller& operator=(Traveller const&) = default;
    Traveller& operator=(Traveller&&) = default;
    ~Traveller() = default;

    int copies = 0;
    int moves = 0;
};

struct Receiver
{
    Traveller arrived;
    void const* seen = nullptr;
    int calls = 0;

    void byConstReference(Traveller const& traveller, int)
    {
        arrived.copies = traveller.copies;
        arrived.moves = traveller.moves;
        seen = &traveller;
    }
    void byReference(Traveller& traveller, int& count)
    {
        seen = &traveller;
        ++count;
    }
    void byValue(int, Traveller traveller) // NOLINT(performance-unnecessary-value-param)
    {
        arrived.copies = traveller.copies;
        arrived.moves = traveller.moves;
    }
    void byRvalue(Traveller&& traveller, int) { seen = &traveller; }
    void count(int, int) { ++calls; }
};

} // namespace

class TestFastDelegate : public QObject
{
    Q_OBJECT

private slots:
    void callsMemberOnObject()
    {
        Sum sum{10};
        FastDelegate2<int, int, int> const delegate(&sum, &Sum::add);
        QCOMPARE(delegate(1, 2), 13);
        QCOMPARE(sum.base, 13);
        // Another order of the arguments would give the same sum.
        Both both;
        FastDelegate2<int, int, int> const difference(&both, &Second::scaledConst);
        QCOMPARE(difference(5, 2), 60);
    }

    void callsInheritedMember()
    {
        Inherits object;
        object.base = 5;
        FastDelegate2<int, int, int> const delegate(&object, &Inherits::add);
        QCOMPARE(delegate(1, 1), 7);
        QCOMPARE(object.base, 7);
        QCOMPARE(object.ownMember, 7);
    }

    void callsConstMember()
    {
        Sum const constant{100};
        FastDelegate2<int, int, int> const onConstant(&constant, &Sum::sum);
        QCOMPARE(onConstant(1, 2), 103);

        Sum variable{200};
        FastDelegate2<int, int, int> const onVariable(&variable, &Sum::sum);
        variable.base = 300;
        QCOMPARE(onVariable(1, 2), 303);
    }

    void callsNoexceptMember()
    {
        Sum sum{10};
        FastDelegate2<int, int, int> const delegate(&sum, &Sum::quiet);
        QCOMPARE(delegate(1, 2), 7);
    }

    void adjustsAddressForSecondBase()
    {
        Both both;
        Second const* const base = &both;
        QVERIFY(static_cast<void const*>(base) != static_cast<void const*>(&both));

        FastDelegate2<int, int, int> const inherited(&both, &Both::scaled);
        QCOMPARE(inherited(2, 3), 100);
        FastDelegate2<int, int, int> const inheritedConst(&both, &Both::scaledConst);
        QCOMPARE(inheritedConst(5, 3), 40);
        FastDelegate2<int, int, int> const own(&both, &Both::ownScaled);
        QCOMPARE(own(2, 3), 1500);
        FastDelegate2<int, int, void const*> const address(&both, &Both::address);
        QCOMPARE(address(0, 0), static_cast<void const*>(base));

        // A function of the base that was made one of the derived class carries its own adjustment. The
        // classes are plain, since g++'s check of virtual tables takes such a call for an error.
        Plain plain;
        int (Plain::*converted)(int, int) = &Right::scaled;
        FastDelegate2<int, int, int> const viaConverted(&plain, converted);
        QCOMPARE(viaConverted(2, 3), 20);
    }

    void reachesVirtualBase()
    {
        Diamond object;
        object.base = 4;
        FastDelegate2<int, int, int> const delegate(&object, &Sum::add);
        QCOMPARE(delegate(1, 1), 6);
        QCOMPARE(object.padding, 0);
    }

    void dispatchesVirtualFunction()
    {
        Circle circle;
        Shape* const shape = &circle;
        FastDelegate2<int, int, QString> const delegate(shape, &Shape::name);
        QCOMPARE(delegate(0, 0), "circle"_s);
        FastDelegate2<int, int, QString> const constDelegate(&circle, &Shape::constName);
        QCOMPARE(constDelegate(0, 0), "const circle"_s);

        LateCircle late;
        FastDelegate2<int, int, QString> const lateDelegate(&late, &Shape::name);
        QCOMPARE(lateDelegate(0, 0), "late circle"_s);

        Shape plain;
        FastDelegate2<int, int, QString> const plainDelegate(&plain, &Shape::name);
        QCOMPARE(plainDelegate(0, 0), "shape"_s);
    }

    void keepsObjectsApart()
    {
        Sum one{1};
        Sum two{2};
        FastDelegate2<int, int, int> const addToOne(&one, &Sum::add);
        FastDelegate2<int, int, int> const addToTwo(&two, &Sum::add);
        FastDelegate2<int, int, int> const sumOfOne(&one, &Sum::sum);
        addToOne(10, 0);
        addToTwo(20, 0);
        QCOMPARE(one.base, 11);
        QCOMPARE(two.base, 22);
        QCOMPARE(sumOfOne(0, 0), 11);
    }

    void startsEmpty_data()
    {
        QTest::addColumn<SumDelegate>("delegate");

        static Sum sum;
        int (Sum::*const none)(int, int) = nullptr;
        QTest::newRow("default constructed") << SumDelegate();
        QTest::newRow("from nullptr") << SumDelegate(nullptr);
        QTest::newRow("bound to no function") << SumDelegate(&sum, none);
    }

    void startsEmpty()
    {
        QFETCH(SumDelegate, delegate);
        QVERIFY(delegate.empty());
        QVERIFY(!delegate);
        QVERIFY(!static_cast<bool>(delegate));
        QVERIFY(delegate == nullptr);
        QVERIFY(!(delegate != nullptr));
        QCOMPARE(delegate(1, 2), 0);
    }

    void bindingMakesItNonEmpty()
    {
        Sum sum;
        FastDelegate2<int, int, int> const delegate(&sum, &Sum::add);
        QVERIFY(!delegate.empty());
        QVERIFY(static_cast<bool>(delegate));
        QCOMPARE(!delegate, false);
        QVERIFY(delegate != nullptr);
        QVERIFY(!(delegate == nullptr));
    }

    void clearForgetsObject()
    {
        Sum sum{1};
        FastDelegate2<int, int, int> delegate(&sum, &Sum::add);
        delegate.clear();
        QVERIFY(delegate.empty());
        QCOMPARE(delegate(5, 5), 0);
        QCOMPARE(sum.base, 1);
    }

    void assignsNullptr()
    {
        Sum sum{1};
        FastDelegate2<int, int, int> delegate(&sum, &Sum::add);
        delegate = nullptr;
        QVERIFY(delegate.empty());
        QCOMPARE(delegate(5, 5), 0);
        QCOMPARE(sum.base, 1);
    }

    void copiesBindToSameObject()
    {
        Both both;
        FastDelegate2<int, int, int> original(&both, &Both::scaled);
        FastDelegate2<int, int, int> const copy(original);
        original.clear();
        QVERIFY(!copy.empty());
        QCOMPARE(copy(1, 1), 40);
        both.second = 30;
        QCOMPARE(copy(1, 1), 60);
    }

    void assignmentReplacesBinding()
    {
        Sum one{1};
        Both both;
        FastDelegate2<int, int, int> delegate(&one, &Sum::add);
        FastDelegate2<int, int, int> const other(&both, &Both::scaled);
        delegate = other;
        QCOMPARE(delegate(1, 2), 60);
        QCOMPARE(one.base, 1);
        QCOMPARE(other(1, 2), 60);

        // As a command does that binds its next handler in place.
        delegate = FastDelegate2<int, int, int>(&one, &Sum::sum);
        QCOMPARE(delegate(1, 2), 4);
    }

    void emptyCallReturnsValueInitialised()
    {
        struct Plain
        {
            int number;
            void* pointer;
        };
        QCOMPARE((FastDelegate2<int, int, int>()(1, 2)), 0);
        QCOMPARE((FastDelegate2<int, int, bool>()(1, 2)), false);
        QCOMPARE((FastDelegate2<int, int, double>()(1, 2)), 0.0);
        QVERIFY((FastDelegate2<int, int, QString>()(1, 2)).isNull());
        QVERIFY((FastDelegate2<int, int, int*>()(1, 2)) == nullptr);
        Plain const plain = FastDelegate2<int, int, Plain>()(1, 2);
        QCOMPARE(plain.number, 0);
        QVERIFY(plain.pointer == nullptr);
    }

    void returnsVoid()
    {
        Receiver receiver;
        FastDelegate2<int, int> delegate(&receiver, &Receiver::count);
        static_assert(std::is_void_v<decltype(delegate(1, 2))>);
        delegate(1, 2);
        delegate(1, 2);
        QCOMPARE(receiver.calls, 2);
        delegate.clear();
        delegate(1, 2);
        QCOMPARE(receiver.calls, 2);
    }

    void passesReferencesThrough()
    {
        Receiver receiver;
        Traveller traveller;

        FastDelegate2<Traveller const&, int> const byConstReference(&receiver, &Receiver::byConstReference);
        byConstReference(traveller, 1);
        QCOMPARE(receiver.seen, static_cast<void const*>(&traveller));
        QCOMPARE(receiver.arrived.copies, 0);
        QCOMPARE(receiver.arrived.moves, 0);

        receiver.seen = nullptr;
        int count = 0;
        FastDelegate2<Traveller&, int&> const byReference(&receiver, &Receiver::byReference);
        byReference(traveller, count);
        byReference(traveller, count);
        QCOMPARE(receiver.seen, static_cast<void const*>(&traveller));
        QCOMPARE(count, 2);

        receiver.seen = nullptr;
        FastDelegate2<Traveller&&, int> const byRvalue(&receiver, &Receiver::byRvalue);
        void const* const address = &traveller;
        byRvalue(std::move(traveller), 1);
        QCOMPARE(receiver.seen, address);
    }

    void copiesValueOnce()
    {
        Receiver receiver;
        Traveller const traveller;
        FastDelegate2<int, Traveller> const byValue(&receiver, &Receiver::byValue);
        byValue(1, traveller);
        QCOMPARE(receiver.arrived.copies, 1);
        byValue(1, Traveller());
        QCOMPARE(receiver.arrived.copies, 0);
    }

    void allocationsAreCounted()
    {
        // Keeps the compiler from leaving the pair of new and delete out.
        static int* volatile kept = nullptr;
        int const before = g_allocations;
        kept = new int(1);
        int const after = g_allocations;
        delete kept;
        QCOMPARE(after - before, 1);
    }

    void allocatesNothing()
    {
        Sum sum{1};
        Both both;
        int const before = g_allocations;
        FastDelegate2<int, int, int> delegate(&sum, &Sum::add);
        int result = delegate(1, 2);
        FastDelegate2<int, int, int> copy(delegate);
        result += copy(3, 4);
        copy = FastDelegate2<int, int, int>(&both, &Both::scaled);
        result += copy(1, 1);
        delegate = copy;
        result += delegate(1, 1);
        delegate.clear();
        result += delegate(1, 1);
        int const after = g_allocations;
        QCOMPARE(after - before, 0);
        QCOMPARE(result, 4 + 11 + 40 + 40);
    }

    void isPlainValue()
    {
        // Plugins pass it by value to the host, so its size and its triviality are
        // part of the contract with them.
        using Delegate = FastDelegate2<int, int, int>;
        QVERIFY(std::is_trivially_copyable_v<Delegate>);
        QVERIFY(std::is_trivially_destructible_v<Delegate>);
        QCOMPARE(sizeof(Delegate), 2 * sizeof(void*) + sizeof(int(Sum::*)(int, int)));
    }
};

QTEST_GUILESS_MAIN(TestFastDelegate)
#include "tst_fast_delegate.moc"
