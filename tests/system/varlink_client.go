// A client that shares no code with valend: a library makes the connection, and parses the description
// that valend returns, against which the answers are checked.
//   varlink_client SOCKET INTERFACE
// Asks what the service is, lists the interfaces, watches INTERFACE while it shuts it down, and makes
// calls that must be rejected. Prints a line for each answer; fails when one is not as described.
package main

import (
	"context"
	"fmt"
	"math"
	"os"
	"strings"

	"github.com/varlink/go/varlink"
	"github.com/varlink/go/varlink/idl"
)

type object = map[string]interface{}

const daemon = "org.valen.daemon"

var (
	always  = context.Background()
	methods = map[string]*idl.Method{}
	types   = map[string]*idl.Type{}
	failed  = map[string]*idl.Type{} // the parameters of errors
)

func require(err error) {
	if err != nil {
		fmt.Fprintln(os.Stderr, "varlink_client:", err)
		os.Exit(1)
	}
}

func connect(socket string) *varlink.Connection {
	connection, err := varlink.NewConnection(always, "unix:"+socket)
	require(err)
	return connection
}

// Whether a value is of the described type; `where` is its path in the answer.
func conforms(value interface{}, kind *idl.Type, where string) error {
	ok := false
	switch kind.Kind {
	case idl.TypeMaybe:
		if value == nil {
			return nil
		}
		return conforms(value, kind.ElementType, where)
	case idl.TypeAlias:
		return conforms(value, types[kind.Alias], where)
	case idl.TypeStruct:
		return structConforms(value, kind, where)
	case idl.TypeArray:
		elements, isArray := value.([]interface{})
		for i, element := range elements {
			if err := conforms(element, kind.ElementType, fmt.Sprintf("%s[%d]", where, i)); err != nil {
				return err
			}
		}
		ok = isArray
	case idl.TypeBool:
		_, ok = value.(bool)
	case idl.TypeInt:
		number, isNumber := value.(float64)
		ok = isNumber && number == math.Trunc(number)
	case idl.TypeString:
		_, ok = value.(string)
	case idl.TypeObject:
		_, ok = value.(object)
	}
	if !ok {
		return fmt.Errorf("%s is %v, which is not of its type", where, value)
	}
	return nil
}

func structConforms(value interface{}, kind *idl.Type, where string) error {
	fields, ok := value.(object)
	if !ok {
		return fmt.Errorf("%s is %v, not a structure", where, value)
	}
	described := map[string]bool{}
	for _, field := range kind.Fields {
		described[field.Name] = true
		if err := conforms(fields[field.Name], field.Type, where+"."+field.Name); err != nil {
			return err
		}
	}
	for name := range fields {
		if !described[name] {
			return fmt.Errorf("%s.%s is not described", where, name)
		}
	}
	return nil
}

// Calls a method of the daemon; the function that it returns takes the next answer, and reports whether
// more will come.
func call(connection *varlink.Connection, name string, parameters object, flags uint64) func() (object, bool) {
	require(conforms(parameters, methods[name].In, name))
	receive, err := connection.Send(always, daemon+"."+name, parameters, flags)
	require(err)
	return func() (object, bool) {
		var answer object
		more, err := receive(always, &answer)
		require(err)
		require(conforms(answer, methods[name].Out, name))
		return answer, more&varlink.Continues != 0
	}
}

func readDescription(connection *varlink.Connection) {
	var vendor, product, version, url string
	var interfaces []string
	require(connection.GetInfo(always, &vendor, &product, &version, &url, &interfaces))
	fmt.Println("service:", vendor, product, interfaces)
	for _, name := range interfaces {
		text, err := connection.GetInterfaceDescription(always, name)
		require(err)
		described, err := idl.New(text)
		require(err)
		fmt.Println("described:", described.Name, len(described.Methods) > 1)
		if name != daemon {
			continue
		}
		for _, method := range described.Methods {
			methods[method.Name] = method
		}
		for _, alias := range described.Aliases {
			types[alias.Name] = alias.Type
		}
		for _, one := range described.Errors {
			failed[daemon+"."+one.Name] = one.Type
		}
	}
}

func shutDown(connection, watcher *varlink.Connection, name string) {
	next := call(watcher, "WatchStatus", object{"interface": name}, varlink.More)
	await := func(wanted string) { // the state in between may be seen, or not
		for state := ""; !strings.Contains(state, wanted); {
			answer, _ := next()
			one := answer["interfaces"].([]interface{})[0].(object)
			state = fmt.Sprint(one["name"], " is ", one["link"], ", ready ", one["ready"], ", held ", one["delayed"])
			if strings.Contains(state, wanted) {
				fmt.Println("watched:", state)
			}
		}
	}
	await("up, ready true")
	step := call(connection, "Shutdown", object{"interface": name}, varlink.More)
	for more := true; more; {
		var answer object
		answer, more = step()
		shutdown := answer["shutdown"].(object)
		fmt.Println("step:", answer["step"], shutdown["sent"], "sent,", shutdown["ending"])
	}
	await("held true")
	await("is down")
}

// Asks for the goodbyes of all interfaces, of which one may have none.
func sayGoodbye(connection *varlink.Connection) {
	answer, _ := call(connection, "Goodbye", object{"all": true, "reason": "test"}, 0)()
	for _, each := range answer["results"].([]interface{}) {
		result := each.(object)
		fmt.Println("goodbye:", result["interface"], result["result"])
	}
}

// Makes a call that must be rejected, and shows the error with its parameters.
func rejected(connection *varlink.Connection, method string, parameters object) {
	receive, err := connection.Send(always, method, parameters, 0)
	require(err)
	_, err = receive(always, nil)
	known, ok := err.(*varlink.Error)
	if !ok { // one of the service's own, which the library knows
		fmt.Printf("rejected: %T %+v\n", err, err)
		return
	}
	kind, described := failed[known.Name]
	if !described {
		require(fmt.Errorf("%s is not described", known.Name))
	}
	fmt.Println("rejected:", known.Name, len(kind.Fields))
}

func main() {
	socket, name := os.Args[1], os.Args[2]
	connection, watcher := connect(socket), connect(socket)
	readDescription(connection)
	list, _ := call(connection, "List", object{}, 0)()
	fmt.Println("listed:", list["interfaces"])
	for _, method := range []string{"Status", "History", "ListMessages", "Config", "TraceLevels", "Memory", "Rescan"} {
		call(connection, method, object{}, 0)()
	}
	shutDown(connection, watcher, name)
	for _, method := range []string{"Status", "Explain"} {
		call(connection, method, object{"interface": name}, 0)()
	}
	call(connection, "History", object{"interfaces": []interface{}{name}, "last": 1.0}, 0)()
	result, _ := call(connection, "Enable", object{"interface": name}, 0)()
	fmt.Println("enabled:", result["result"])
	sayGoodbye(connection)
	rejected(connection, daemon+".ShutdownMany", object{})
	rejected(connection, daemon+".ShutdownMany", object{"interface": name})
	rejected(connection, daemon+".EnableMany", object{"all": false})
	rejected(connection, daemon+".Shutdown", object{"interface": "Ethernet9"})
	rejected(connection, daemon+".Shutdown", object{"interface": 9})
	rejected(connection, daemon+".ShutDown", object{"interface": name})
	rejected(connection, daemon+".Shutdown", object{"interface": name, "force": true})
	rejected(connection, "org.none.Such", object{})
}
